#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Which server an http(s) URL names: scheme, host and port. Two addresses are equal where a
/// request to one may carry the credentials that were given for the other.
struct ServerAddress {
  /// In lower case.
  std::string scheme;
  std::string host;
  /// Decimal; that of the scheme where the URL has none.
  std::string port;

  /// None for what is no http(s) URL with a host, and where programs that read URLs differ on which
  /// host it names: a backslash, a control character, a blank or a second "@" before the path.
  [[nodiscard]] static std::optional<ServerAddress> of(std::string_view url);

  friend bool operator==(const ServerAddress&, const ServerAddress&) = default;
};

/// Where what follows the server begins in a URL: at the first "/", "?" or "#" behind "://", or at
/// the end; 0 for a text without "://".
[[nodiscard]] std::size_t endOfAuthority(std::string_view url) noexcept;

}  // namespace varo::binary
