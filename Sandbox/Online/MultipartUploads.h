#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Online/StoreError.h"
#include "Sandbox/Online/StoreOperation.h"
#include "Sandbox/Storage/UploadDatabase.h"

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace varo::sandbox {

struct NamedPart;

/// Uploads in parts: parts are stored as they come, in any order and side by side, and become the
/// object in one step. Of two requests for one part the last to end counts. Thread-safe. Exceptions
/// of the databases pass through.
class MultipartUploads {
 public:
  /// All parts but the last of an object have `leastPartBytes` at least.
  MultipartUploads(ObjectStores stores, std::uint64_t leastPartBytes)
      : stores_(stores), leastPartBytes_(leastPartBytes) {}

  /// They refer to this.
  [[nodiscard]] std::vector<StoreOperation> operations();

 private:
  [[nodiscard]] HttpResponse begin(const HttpRequest& request);
  [[nodiscard]] HttpResponse takePart(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse listParts(const HttpRequest& request) const;
  [[nodiscard]] HttpResponse complete(const HttpRequest& request, RequestBody& body);
  [[nodiscard]] HttpResponse giveUp(const HttpRequest& request);
  [[nodiscard]] HttpResponse listUploads(const HttpRequest& request) const;

  [[nodiscard]] bool hasUpload(const HttpRequest& request) const;
  /// The parts that have arrived of those that a client names, or why they make no object.
  [[nodiscard]] std::variant<std::vector<PartRecord>, StoreError> chosenParts(
      const HttpRequest& request, const std::vector<NamedPart>& named) const;
  /// Makes the object of the parts, which end with the upload. Returns its entity tag.
  [[nodiscard]] std::variant<std::string, StoreError> join(const HttpRequest& request,
                                                           const std::vector<PartRecord>& parts);

  const ObjectStores stores_;
  const std::uint64_t leastPartBytes_;
};

}  // namespace varo::sandbox
