#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"

#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::sandbox {

/// Something that the signed store does, and how a request asks for it. HTTP's methods are few: the
/// query says which operation a request means.
struct StoreOperation {
  enum class Target { kObject, kBucket };

  std::string_view method;
  /// The query parameter that the operation is known by; empty: one on a whole object.
  std::string_view marker;
  /// Parameters that it takes besides.
  std::vector<std::string_view> others;
  Target target = Target::kObject;
  /// Whether `run` reads the body.
  bool takesBody = false;
  std::function<HttpResponse(const HttpRequest& request, RequestBody& body)> run;

  /// Whether `request`, HEAD as GET, asks for this. A parameter that the operation does not know
  /// asks for another: nobody must get one thing who has asked for another.
  [[nodiscard]] bool isAskedForBy(const HttpRequest& request) const;
};

/// Where a path leads, the bucket being its first part.
struct StoreAddress {
  std::string bucket;
  std::string key;  ///< Within the bucket.
};
/// Of an object. A key without a slash is in no bucket.
[[nodiscard]] StoreAddress objectAddress(std::string_view wholeKey);

/// The object's key: the whole path.
[[nodiscard]] inline const std::string& keyOf(const HttpRequest& request) {
  return request.pathArguments.front();
}
/// What all keys of the bucket begin with that the request names: its name and a slash. Empty for
/// the root, which has all keys.
[[nodiscard]] std::string bucketPrefixOf(const HttpRequest& request);

}  // namespace varo::sandbox
