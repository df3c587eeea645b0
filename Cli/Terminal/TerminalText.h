#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace varo::cli {

/// `text` made safe to show: what is not UTF-8 and every control character becomes U+FFFD, so that
/// a name chosen by a server cannot steer the terminal.
[[nodiscard]] std::string printable(std::string_view text);

/// Columns that printable text takes on a terminal: 2 for wide characters, 0 for combining marks.
[[nodiscard]] std::size_t displayWidth(std::string_view text);

/// `text`, or as much of it as fits into `width` columns with an ellipsis at the end.
[[nodiscard]] std::string cutToWidth(std::string_view text, std::size_t width);

/// The same with the ellipsis in the middle: for names, whose ends tell them apart.
[[nodiscard]] std::string cutMiddleToWidth(std::string_view text, std::size_t width);

}  // namespace varo::cli
