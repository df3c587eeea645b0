#include "Platform/Network/ConfigurationRules.h"

#include "Platform/Network/CurlProxy.h"
#include "Platform/Network/HeaderRules.h"

#include <cstddef>
#include <string_view>
#include <variant>

namespace varo::platform {
namespace {

/// "sha256//" and 32 bytes in Base64. libcurl takes anything else for the name of a file, and
/// several of them for one text that semicolons divide.
bool isPin(std::string_view text) {
  constexpr std::string_view kStart = "sha256//";
  constexpr std::size_t kDigits = 43;
  if (text.substr(0, kStart.size()) != kStart) return false;
  text.remove_prefix(kStart.size());
  constexpr std::string_view kAlphabet =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  return text.size() == kDigits + 1 && text.back() == '=' &&
         text.substr(0, kDigits).find_first_not_of(kAlphabet) == std::string_view::npos;
}

bool hasNul(const std::string& text) { return text.find('\0') != std::string::npos; }

}  // namespace

std::optional<ConfigurationMistake> mistakeIn(const NetworkConfiguration& configuration) {
  using Mistake = ConfigurationMistake;
  const struct {
    const char* field;
    const std::string& text;
  } texts[] = {{"caFile", configuration.caFile},
               {"caDirectory", configuration.caDirectory},
               {"clientCertificate", configuration.clientCertificate},
               {"clientKey", configuration.clientKey},
               {"clientKeyPassword", configuration.clientKeyPassword}};
  for (const auto& [field, text] : texts) {
    if (hasNul(text)) return Mistake{field, "has a NUL"};
  }
  if (configuration.clientCertificate.empty()) {
    if (!configuration.clientKey.empty()) return Mistake{"clientKey", "has no clientCertificate"};
    if (!configuration.clientKeyPassword.empty()) {
      return Mistake{"clientKeyPassword", "has no clientCertificate"};
    }
  }
  for (const std::string& pin : configuration.pinnedKeys) {
    if (!isPin(pin)) {
      return Mistake{"pinnedKeys", "has an entry that is not \"sha256//\" and a digest in Base64"};
    }
  }
  if (!checkHeader("User-Agent", configuration.userAgent)) {
    return Mistake{"userAgent", "has control characters"};
  }
  const auto proxies = CurlProxies::of(configuration.proxy);
  if (const auto* mistake = std::get_if<Mistake>(&proxies)) return *mistake;
  return std::nullopt;
}

}  // namespace varo::platform
