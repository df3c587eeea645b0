#pragma once

#include "Platform/Foundation/Dictionary.h"

#include <string>
#include <string_view>

namespace varo::platform {

/// `url` with the parameters appended to its query, before any fragment, in their order.
///
/// Keys and values are encoded, "$" in keys stays ("$filter"); values go out in their text form,
/// parameters that are null are left out. A question mark or ampersand at the end of the URL is
/// used.
[[nodiscard]] std::string appendQuery(const std::string& url, const Dictionary& parameters);

/// `url` with the bytes percent-encoded that may not stand in a URL: blanks, controls, double
/// quotes, `<>\^{|}` and backticks, bytes over 127, and "%" where no two hexadecimal digits follow.
/// What is encoded already stays as it is.
[[nodiscard]] std::string encodeForbiddenBytes(std::string_view url);

}  // namespace varo::platform
