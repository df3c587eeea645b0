#pragma once

#include <string>
#include <string_view>

namespace varo::platform {

/// What stands in logs in place of a secret.
inline constexpr std::string_view kRedacted = "<redacted>";

/// Whether the value under this key, header name or query parameter is a secret: authorization
/// tokens, cookies, keys, signatures. Any letter case.
[[nodiscard]] bool isSecretKey(std::string_view key) noexcept;

/// `text`, JSON or a URL or anything else that a peer sent, with the values behind secret keys
/// (`"key": "value"`, `key=value`, `key: value`) replaced.
[[nodiscard]] std::string redactSecrets(std::string_view text);

/// `url` as logs may show it: without user name, password and fragment, its query as
/// `redactSecrets` leaves it. Need not be valid.
[[nodiscard]] std::string redactUrl(std::string_view url);

}  // namespace varo::platform
