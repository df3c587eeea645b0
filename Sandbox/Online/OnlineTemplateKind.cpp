#include "Sandbox/Online/OnlineTemplateKind.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

/// The choice whose name, at the place of its value among `names`, is `value`.
template <typename Choice, std::size_t kCount>
bool choose(const json::value& value, const std::string_view (&names)[kCount], Choice& choice) {
  if (!value.is_string()) return false;
  const auto* found =
      std::find(std::begin(names), std::end(names), std::string_view(value.get_string()));
  if (found == std::end(names)) return false;
  choice = static_cast<Choice>(found - std::begin(names));
  return true;
}

bool readUploadMode(const json::value& value, std::string& mode) {
  if (!value.is_string()) return false;
  mode = value.get_string();
  return true;
}

bool readOpstatus(const json::value& value, std::optional<std::int64_t>& opstatus) {
  opstatus = value.is_int64() ? std::optional(value.get_int64()) : std::nullopt;
  return opstatus || value.is_null();
}

bool readStatus(const json::value& value, int& status) {
  if (!value.is_int64() || value.get_int64() < 200 || value.get_int64() > 599) return false;
  status = static_cast<int>(value.get_int64());
  return true;
}

bool readEntries(const json::value& value, json::object& entries) {
  if (!value.is_object()) return false;
  entries = value.get_object();
  return true;
}

bool apply(std::string_view key, const json::value& value, OnlineTemplateKind& kind) {
  if (key == "uploadMode") return readUploadMode(value, kind.uploadMode);
  if (key == "domain") return choose(value, {"store", "service"}, kind.target);
  if (key == "auth") return choose(value, {"HMACDigest", "presigned", "none"}, kind.auth);
  if (key == "address") return choose(value, {"endpointUrl", "domain"}, kind.address);
  if (key == "opstatus") return readOpstatus(value, kind.opstatus);
  if (key == "status") return readStatus(value, kind.status);
  return key == "entries" && readEntries(value, kind.entries);
}

}  // namespace

std::variant<OnlineTemplateKind, std::string> onlineTemplateKindFrom(const json::object& wish) {
  using Target = OnlineTemplateKind::Target;
  using Auth = OnlineTemplateKind::Auth;
  OnlineTemplateKind kind;
  for (const auto& [key, value] : wish) {
    if (!apply(key, value, kind)) {
      return fmt::format("\"{}\" is unknown or has a wrong value", std::string_view(key));
    }
  }
  if (!wish.contains("domain") && kind.isMultipart()) kind.target = Target::kService;
  if (!wish.contains("auth") && (kind.isMultipart() || kind.target == Target::kService)) {
    kind.auth = Auth::kNone;
  }
  if (kind.auth == Auth::kPresigned && kind.target == Target::kService) {
    // The service checks tokens and no signatures.
    return "only addresses of the store can be signed";
  }
  return kind;
}

}  // namespace varo::sandbox
