#pragma once

#include <boost/json/object.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <variant>

namespace varo::sandbox {

/// What the template of an online upload says, and how it is handed out.
struct OnlineTemplateKind {
  enum class Target { kStore, kService };
  /// Who shows the store that the upload may be.
  enum class Auth {
    kHmacDigest,  ///< The client signs, with its own keys.
    kPresigned,   ///< The address is signed already.
    kNone,
  };
  enum class Address { kEndpointUrl, kDomain };

  std::string uploadMode = "binary";
  Target target = Target::kStore;
  Auth auth = Auth::kHmacDigest;
  Address address = Address::kEndpointUrl;
  std::optional<std::int64_t> opstatus = 0;  ///< Absent, the template has no such entry.
  int status = 200;                          ///< Of the response that has the template.
  /// Put over the template's own entries at the end; null takes one away.
  boost::json::object entries{};

  [[nodiscard]] bool isMultipart() const { return uploadMode == "multipart"; }
};

/// The kind that `wish` asks for, with the entries
/// - "uploadMode": any text;
/// - "domain": "store" or "service";
/// - "auth": "HMACDigest", "presigned" or "none";
/// - "address": "endpointUrl" or "domain";
/// - "opstatus": whole number or null;
/// - "status": 200 to 599;
/// - "entries": an object.
///
/// Unless it says otherwise, forms go to the service and unsigned, all else to the store and
/// signed. The text says which entry is unknown, wrong, or does not go with the others.
[[nodiscard]] std::variant<OnlineTemplateKind, std::string> onlineTemplateKindFrom(
    const boost::json::object& wish);

}  // namespace varo::sandbox
