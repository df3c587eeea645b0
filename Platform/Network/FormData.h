#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace varo::platform {

/// The Content-Disposition of a part of a form (RFC 7578). Quotes and line breaks in the names are
/// percent-encoded, so that no name can add a parameter or a header.
[[nodiscard]] std::string formDataDisposition(std::string_view name,
                                              std::optional<std::string_view> fileName);

}  // namespace varo::platform
