#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::sandbox {

/// What one of the two listeners has seen since the start or the last clearing.
struct ListenerStats {
  std::uint64_t requests = 0;
  std::uint64_t bodyBytes = 0;     ///< Bytes of request bodies that a service read.
  std::uint64_t tokenHeaders = 0;  ///< Requests that carried "X-Pelmar-Authorization".
};

/// One request as it arrived. Long values are cut.
struct LoggedRequest {
  std::string listener;  ///< "service" or "store".
  std::string method;
  std::string path;
  std::string query;  ///< Still encoded.
  std::vector<std::pair<std::string, std::string>> headers;
  std::uint64_t bodyBytes = 0;
  int status = 0;  ///< Of the response.

  /// The first value under `name` (any letter case), or null.
  [[nodiscard]] const std::string* header(std::string_view name) const;
};

}  // namespace varo::sandbox
