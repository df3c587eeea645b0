#include "Platform/Network/FormData.h"

#include <fmt/format.h>

namespace varo::platform {
namespace {

/// `text` as it may stand between quotes in a header (RFC 7578, section 4.2).
std::string quoted(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '"') {
      result += "%22";
    } else if (c == '\r') {
      result += "%0D";
    } else if (c == '\n') {
      result += "%0A";
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string formDataDisposition(std::string_view name, std::optional<std::string_view> fileName) {
  std::string disposition = fmt::format(R"(form-data; name="{}")", quoted(name));
  if (!fileName) return disposition;
  return disposition + fmt::format(R"(; filename="{}")", quoted(*fileName));
}

}  // namespace varo::platform
