#pragma once

#include "Sandbox/Http/Router.h"
#include "Sandbox/Http/WantedToken.h"
#include "Sandbox/Online/MultipartUploads.h"
#include "Sandbox/Online/ObjectListing.h"
#include "Sandbox/Online/SignatureVerifier.h"
#include "Sandbox/Online/SignedStoreOptions.h"
#include "Sandbox/Online/StoreOperation.h"
#include "Sandbox/Storage/DiskStore.h"

#include <optional>
#include <string>
#include <vector>

namespace varo::sandbox {

/// An object store in the manner of S3: PUT, POST (a form), GET, HEAD and DELETE of /{key}, where
/// the key is the whole decoded path, uploads in parts, and lists of
/// buckets. Requests are signed; refusals are XML.
/// Thread-safe. Exceptions of the record database pass through.
class SignedStore {
 public:
  SignedStore(ObjectStores stores, const SignedStoreOptions& options);

  /// Takes all paths that no route before it took.
  void registerRoutes(Router& router);

  /// What requests must show besides the signature.
  [[nodiscard]] WantedToken& sessionToken() noexcept { return sessionToken_; }

  /// Adds what every response of such a store has: the request's id and the time by its clock.
  void stamp(HttpResponse& response) const;

 private:
  [[nodiscard]] std::vector<StoreOperation> allOperations();
  /// Runs what the request asks for, if it may.
  [[nodiscard]] HttpResponse serve(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] std::optional<StoreError> refusalOf(const HttpRequest& request,
                                                    const StoreOperation* operation) const;
  [[nodiscard]] HttpResponse write(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse read(const HttpRequest& request) const;
  [[nodiscard]] HttpResponse remove(const HttpRequest& request);
  [[nodiscard]] sigv4::Time now() const;

  DiskStore& objects_;
  const SignedStoreOptions options_;
  WantedToken sessionToken_;
  const SignatureVerifier verifier_;
  const ObjectListing listing_;
  MultipartUploads uploads_;
  const std::vector<StoreOperation> operations_;
};

}  // namespace varo::sandbox
