#pragma once

#include <chrono>
#include <string>

namespace varo::binary::signing {

/// In UTC, as signatures have it: "yyyyMMdd".
[[nodiscard]] std::string dateText(std::chrono::system_clock::time_point time);
/// The same to the second: "yyyyMMdd'T'HHmmss'Z'".
[[nodiscard]] std::string timeText(std::chrono::system_clock::time_point time);

}  // namespace varo::binary::signing
