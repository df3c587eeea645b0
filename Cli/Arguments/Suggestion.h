#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace varo::cli {

/// The candidate that `word` was probably meant to be: the one that the fewest insertions,
/// deletions, replacements and swaps of neighbours lead to, if they are few for its length.
[[nodiscard]] std::optional<std::string> closestTo(std::string_view word,
                                                   std::span<const std::string> candidates);

}  // namespace varo::cli
