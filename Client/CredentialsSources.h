#pragma once

#include "varo/options.h"
#include "varo/outcome.h"

#include <cstddef>
#include <string_view>

namespace varo::detail {

/// Of a file of credentials or the output of a command, in bytes.
inline constexpr std::size_t kLongestCredentials = std::size_t{64} << 10U;

/// The credentials that a text is; see `<varo/credentials.h>`. `source` names it in failures.
[[nodiscard]] Outcome<Credentials> credentialsIn(std::string_view text, std::string_view source);

}  // namespace varo::detail
