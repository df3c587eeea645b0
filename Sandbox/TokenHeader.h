#pragma once

#include <string_view>

namespace varo::sandbox {

/// The header that carries an application's token to the object service, and nowhere else.
inline constexpr std::string_view kTokenHeader = "X-Pelmar-Authorization";

}  // namespace varo::sandbox
