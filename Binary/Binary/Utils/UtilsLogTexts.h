#pragma once

#include <string_view>

/// What the helpers of Binary/Binary/Utils log.
/// The texts are fixed, misspellings included: people search logs for them. Each class has a group
/// of its own.
namespace varo::binary::log_texts {

namespace block_call {

inline constexpr std::string_view kBlockThrew =
    "A callback of the application threw, exception : %@";

}  // namespace block_call

namespace common_utils {

inline constexpr std::string_view kResponseUnreadable = "The response can't be read as text : %@";

}  // namespace common_utils

}  // namespace varo::binary::log_texts
