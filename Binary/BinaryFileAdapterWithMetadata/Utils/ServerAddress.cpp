#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>

namespace varo::binary {
namespace {

constexpr std::string_view kSchemeEnd = "://";

constexpr bool isAmbiguous(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return byte <= 0x20 || byte == 0x7F || c == '\\';
}

}  // namespace

std::size_t endOfAuthority(std::string_view url) noexcept {
  const std::size_t scheme = url.find(kSchemeEnd);
  if (scheme == std::string_view::npos) return 0;
  return std::min(url.find_first_of("/?#", scheme + kSchemeEnd.size()), url.size());
}

std::optional<ServerAddress> ServerAddress::of(std::string_view url) {
  const std::size_t schemeEnd = url.find(kSchemeEnd);
  if (schemeEnd == std::string_view::npos) return std::nullopt;
  ServerAddress address;
  address.scheme = platform::lowerCase(url.substr(0, schemeEnd));
  if (address.scheme != "http" && address.scheme != "https") return std::nullopt;

  const std::size_t begin = schemeEnd + kSchemeEnd.size();
  std::string_view authority = url.substr(begin, endOfAuthority(url) - begin);
  if (std::any_of(authority.begin(), authority.end(), isAmbiguous) ||
      std::count(authority.begin(), authority.end(), '@') > 1) {
    return std::nullopt;
  }
  if (const std::size_t user = authority.find('@'); user != std::string_view::npos) {
    authority.remove_prefix(user + 1);
  }
  // An address of IPv6 stands in brackets and has colons of its own.
  const std::size_t hostEnd = authority.starts_with('[') ? authority.find(']') : 0;
  const std::size_t colon = authority.find(':', std::min(hostEnd, authority.size()));
  address.host = platform::lowerCase(authority.substr(0, colon));
  if (address.host.empty()) return std::nullopt;
  if (colon != std::string_view::npos) address.port = authority.substr(colon + 1);
  if (address.port.empty()) address.port = address.scheme == "https" ? "443" : "80";
  return address;
}

}  // namespace varo::binary
