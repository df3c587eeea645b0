#pragma once

#include "Sandbox/Http/Router.h"
#include "Sandbox/Online/SignatureVerifier.h"
#include "Sandbox/Online/SignedStoreOptions.h"
#include "Sandbox/Storage/DiskStore.h"

#include <chrono>

namespace varo::sandbox {

/// An object store in the manner of S3: PUT, POST (a form), GET, HEAD and DELETE of /{key}, where
/// the key is the whole decoded path. Requests are signed; refusals are XML. Thread-safe.
/// Exceptions of the record database pass through.
class SignedStore {
 public:
  SignedStore(DiskStore& objects, const SignedStoreOptions& options);

  /// Takes all paths that no route before it took.
  void registerRoutes(Router& router);

 private:
  using Action = HttpResponse (SignedStore::*)(const HttpRequest& request, RequestBody& body);
  /// Runs `action` for a request that may.
  [[nodiscard]] HttpResponse serve(const HttpRequest& request, RequestBody& body, Action action);
  [[nodiscard]] HttpResponse write(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse read(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse remove(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] sigv4::Time now() const;

  DiskStore& objects_;
  const std::chrono::seconds clockOffset_;
  const SignatureVerifier verifier_;
};

}  // namespace varo::sandbox
