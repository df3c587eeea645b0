#include "Sandbox/Online/StoreOperation.h"

#include <algorithm>

namespace varo::sandbox {
namespace {

// The signature's own, and a name that some clients give to their operation.
bool concernsNoOperation(std::string_view parameter) {
  return startsIgnoringCase(parameter, "x-amz-") || parameter == "x-id";
}

/// The bucket's name, of a path that is one.
std::string_view bucketIn(std::string_view path) {
  if (path.ends_with('/')) path.remove_suffix(1);
  return path;
}

}  // namespace

bool StoreOperation::isAskedForBy(const HttpRequest& request) const {
  if (method != (request.method == "HEAD" ? "GET" : request.method)) return false;
  if (!marker.empty() && request.parameter(marker) == nullptr) return false;
  if (target == Target::kBucket && bucketIn(keyOf(request)).find('/') != std::string_view::npos) {
    return false;
  }
  return std::all_of(request.parameters.begin(), request.parameters.end(), [this](const auto& one) {
    return concernsNoOperation(one.first) || one.first == marker ||
           std::find(others.begin(), others.end(), one.first) != others.end();
  });
}

StoreAddress objectAddress(std::string_view wholeKey) {
  const std::size_t slash = wholeKey.find('/');
  if (slash == std::string_view::npos) return {"", std::string(wholeKey)};
  return {std::string(wholeKey.substr(0, slash)), std::string(wholeKey.substr(slash + 1))};
}

std::string bucketPrefixOf(const HttpRequest& request) {
  const std::string_view bucket = bucketIn(keyOf(request));
  return bucket.empty() ? "" : std::string(bucket) + "/";
}

}  // namespace varo::sandbox
