#include "Platform/Network/CurlProxy.h"

#include "Platform/Foundation/Text.h"
#include "Platform/Network/CurlHandles.h"

#include <fmt/format.h>

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <sys/socket.h>
#include <utility>

namespace varo::platform {
namespace {

constexpr std::array<std::string_view, 6> kSchemes = {"http",    "https",  "socks4",
                                                      "socks4a", "socks5", "socks5h"};
/// Of a user or password (RFC 1929, section 2).
constexpr std::size_t kLongestSocksText = 255;

bool hasControls(std::string_view text) {
  return std::any_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; });
}

std::string part(CURLU* handle, CURLUPart which, unsigned int flags = 0) {
  char* text = nullptr;
  if (curl_url_get(handle, which, &text, flags) != CURLUE_OK) return {};
  const CurlText owner(text);
  return text;
}

/// A proxy, or what is wrong with its address. No text of it has the address: nobody can say
/// which part of a wrong one is a secret.
struct ReadProxy {
  CurlProxy proxy;
  std::string wrong;
};

ReadProxy readAddress(const std::string& text) {
  if (hasControls(text)) return {{}, "has control characters"};
  const CurlUrlHandle handle(curl_url());
  if (handle == nullptr) return {{}, "cannot be read: there is no memory"};
  const CURLUcode code =
      curl_url_set(handle.get(), CURLUPART_URL, text.c_str(), CURLU_NON_SUPPORT_SCHEME);
  if (code != CURLUE_OK) return {{}, fmt::format("is no URL: {}", curl_url_strerror(code))};
  const std::string scheme = lowerCase(part(handle.get(), CURLUPART_SCHEME));
  if (std::find(kSchemes.begin(), kSchemes.end(), scheme) == kSchemes.end()) {
    return {{}, fmt::format("begins with none of {}://", fmt::join(kSchemes, "://, "))};
  }
  const std::string path = part(handle.get(), CURLUPART_PATH);
  if (!(path.empty() || path == "/") || !part(handle.get(), CURLUPART_QUERY).empty() ||
      !part(handle.get(), CURLUPART_FRAGMENT).empty()) {
    return {{}, "has more than host and port"};
  }
  const std::string host = part(handle.get(), CURLUPART_HOST);
  if (host.empty()) return {{}, "names no host"};
  std::string port = part(handle.get(), CURLUPART_PORT);
  if (port.empty()) port = scheme == "https" ? "443" : "1080";
  CurlProxy proxy{fmt::format("{}://{}:{}", scheme, host, port), {}, {}};
  for (const auto& [which, target] :
       {std::pair(CURLUPART_USER, &proxy.user), std::pair(CURLUPART_PASSWORD, &proxy.password)}) {
    *target = part(handle.get(), which, CURLU_URLDECODE);
    // libcurl decodes nothing that becomes a control character.
    const bool isLost = target->empty() && !part(handle.get(), which).empty();
    if (isLost) return {{}, "has a user or a password with control characters"};
  }
  return {std::move(proxy), {}};
}

/// The field that is wrong, and why; none: the credentials fit the proxy.
std::optional<ConfigurationMistake> mistakeInCredentials(const CurlProxy& proxy) {
  const auto wrong = [](const char* field, std::string what) {
    return ConfigurationMistake{fmt::format("proxy.{}", field), std::move(what)};
  };
  const auto startsWith = [&proxy](std::string_view scheme) {
    return proxy.url.compare(0, scheme.size(), scheme) == 0;
  };
  if (hasControls(proxy.user)) return wrong("user", "has control characters");
  if (hasControls(proxy.password)) return wrong("password", "has control characters");
  if (proxy.user.empty() && !proxy.password.empty()) return wrong("password", "has no user");
  if (startsWith("socks4") && !proxy.password.empty()) {
    return wrong("password", "cannot be told to a proxy of the kind socks4");
  }
  if (startsWith("http") && proxy.user.find(':') != std::string::npos) {
    return wrong("user", "has a colon, which ends the user in what http sends");
  }
  if (startsWith("socks") && proxy.user.size() > kLongestSocksText) {
    return wrong("user", "is longer than the 255 bytes that socks can send");
  }
  if (startsWith("socks") && proxy.password.size() > kLongestSocksText) {
    return wrong("password", "is longer than the 255 bytes that socks can send");
  }
  return std::nullopt;
}

/// An IP address, with a length of 0 where the text is none.
struct Address {
  std::array<std::uint8_t, 16> bytes{};
  std::size_t size = 0;
};

Address addressOf(std::string_view text) {
  if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
    text = text.substr(1, text.size() - 2);
  }
  const std::string terminated(text);
  Address address;
  if (::inet_pton(AF_INET, terminated.c_str(), address.bytes.data()) == 1) {
    address.size = 4;
  } else if (::inet_pton(AF_INET6, terminated.c_str(), address.bytes.data()) == 1) {
    address.size = 16;
  }
  return address;
}

bool haveSamePrefix(const Address& left, const Address& right, std::size_t bits) {
  if (left.size != right.size) return false;
  const std::size_t whole = bits / 8;
  if (!std::equal(left.bytes.begin(), left.bytes.begin() + static_cast<std::ptrdiff_t>(whole),
                  right.bytes.begin())) {
    return false;
  }
  const std::size_t rest = bits % 8;
  return rest == 0 || ((left.bytes.at(whole) ^ right.bytes.at(whole)) >> (8 - rest)) == 0;
}

/// How many leading bits of an address an entry such as "10.0.0.0/8" fixes, all of them where it
/// has no slash; none where that is no number of bits of an address.
std::optional<std::size_t> prefixLength(std::string_view entry, const Address& address) {
  const std::size_t all = address.size * 8;
  const std::size_t slash = entry.find('/');
  if (slash == std::string_view::npos) return all;
  const auto bits = parseInteger(entry.substr(slash + 1));
  if (!bits || *bits < 0 || static_cast<std::uint64_t>(*bits) > all) return std::nullopt;
  return static_cast<std::size_t>(*bits);
}

Address addressIn(std::string_view entry) { return addressOf(entry.substr(0, entry.find('/'))); }

bool isNoNetwork(std::string_view entry) {
  if (entry.find('/') == std::string_view::npos) return false;
  const Address address = addressIn(entry);
  return address.size == 0 || !prefixLength(entry, address);
}

std::string_view withoutEndingDot(std::string_view name) {
  if (!name.empty() && name.back() == '.') name.remove_suffix(1);
  return name;
}

std::optional<ConfigurationMistake> mistakeInBypass(const std::vector<std::string>& bypass) {
  for (const std::string& entry : bypass) {
    const std::string_view text = trimmed(entry);
    const auto colons = std::count(text.begin(), text.end(), ':');
    const bool hasPort = colons == 1 || text.find("]:") != std::string_view::npos;
    const char* what = nullptr;
    if (text.empty()) what = "an empty entry";
    if (text.find_first_of(", ;@") != std::string_view::npos) what = "an entry with several hosts";
    if (isNoNetwork(text)) what = "an entry with a slash that is no network such as 10.0.0.0/8";
    if (hasPort) what = "a port; it is hosts that are reached without the proxy";
    if (hasControls(entry)) what = "control characters";
    if (what != nullptr) return ConfigurationMistake{"proxy.bypass", fmt::format("has {}", what)};
  }
  return std::nullopt;
}

std::string environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): asked for
  return value == nullptr ? std::string() : value;
}

/// The first of the variables that has a value, and its name.
std::pair<std::string, std::string> firstOf(std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (std::string value = environment(name); !value.empty()) return {std::move(value), name};
  }
  return {};
}

std::variant<std::optional<CurlProxy>, ConfigurationMistake> readEnvironment(
    std::initializer_list<const char*> names) {
  auto [value, name] = firstOf(names);
  if (value.empty()) return std::nullopt;
  if (value.find("://") == std::string::npos) value.insert(0, "http://");
  ReadProxy read = readAddress(value);
  if (!read.wrong.empty()) {
    return ConfigurationMistake{"proxy.fromEnvironment",
                                fmt::format("cannot be followed: {} {}", name, read.wrong)};
  }
  if (const auto mistake = mistakeInCredentials(read.proxy)) {
    return ConfigurationMistake{
        "proxy.fromEnvironment",
        fmt::format("cannot be followed: {} of {} {}", mistake->field, name, mistake->what)};
  }
  return std::optional(std::move(read.proxy));
}

std::vector<std::string> split(std::string_view list) {
  constexpr std::string_view kSeparators = ", \t";
  std::vector<std::string> entries;
  while (true) {
    const std::size_t start = list.find_first_not_of(kSeparators);
    if (start == std::string_view::npos) return entries;
    list.remove_prefix(start);
    const std::size_t end = std::min(list.find_first_of(kSeparators), list.size());
    entries.emplace_back(list.substr(0, end));
    list.remove_prefix(end);
  }
}

}  // namespace

bool isHostWithin(std::string_view host, std::string_view entry) {
  entry = trimmed(entry);
  if (entry == "*") return true;
  host = withoutEndingDot(host);
  if (const Address address = addressOf(host); address.size > 0) {
    const auto bits = prefixLength(entry, address);
    return bits && haveSamePrefix(address, addressIn(entry), *bits);
  }
  if (entry.substr(0, 2) == "*.") entry.remove_prefix(2);
  if (!entry.empty() && entry.front() == '.') entry.remove_prefix(1);
  entry = withoutEndingDot(entry);
  if (entry.empty() || entry.size() > host.size()) return false;
  const std::size_t above = host.size() - entry.size();
  return equalIgnoringCase(host.substr(above), entry) && (above == 0 || host[above - 1] == '.');
}

std::variant<CurlProxies, ConfigurationMistake> CurlProxies::of(
    const std::optional<ProxyConfiguration>& configuration) {
  CurlProxies proxies;
  if (!configuration) return proxies;
  const ProxyConfiguration& given = *configuration;
  if (given.fromEnvironment) {
    if (!given.url.empty() || !given.user.empty() || !given.password.empty() ||
        !given.bypass.empty()) {
      return ConfigurationMistake{"proxy.fromEnvironment", "stands beside a proxy of its own"};
    }
    auto forHttp = readEnvironment({"http_proxy", "all_proxy", "ALL_PROXY"});
    auto forHttps = readEnvironment({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"});
    if (const auto* mistake = std::get_if<ConfigurationMistake>(&forHttp)) return *mistake;
    if (const auto* mistake = std::get_if<ConfigurationMistake>(&forHttps)) return *mistake;
    proxies.forHttp_ = std::get<std::optional<CurlProxy>>(std::move(forHttp));
    proxies.forHttps_ = std::get<std::optional<CurlProxy>>(std::move(forHttps));
    proxies.bypass_ = split(firstOf({"no_proxy", "NO_PROXY"}).first);
    return proxies;
  }
  ReadProxy read = readAddress(given.url);
  if (read.wrong.empty() && !(read.proxy.user.empty() && read.proxy.password.empty())) {
    read.wrong = "has a user or a password, which belong into proxy.user and proxy.password";
  }
  if (!read.wrong.empty()) return ConfigurationMistake{"proxy.url", std::move(read.wrong)};
  read.proxy.user = given.user;
  read.proxy.password = given.password;
  if (auto mistake = mistakeInCredentials(read.proxy)) return *std::move(mistake);
  if (auto mistake = mistakeInBypass(given.bypass)) return *std::move(mistake);
  proxies.forHttp_ = read.proxy;
  proxies.forHttps_ = std::move(read.proxy);
  proxies.bypass_ = given.bypass;
  return proxies;
}

const CurlProxy* CurlProxies::find(const CurlUrl& url) const {
  const std::optional<CurlProxy>& proxy = url.isHttps() ? forHttps_ : forHttp_;
  if (!proxy) return nullptr;
  const bool isDirect = std::any_of(bypass_.begin(), bypass_.end(), [&url](const auto& entry) {
    return isHostWithin(url.host(), entry);
  });
  return isDirect ? nullptr : &*proxy;
}

}  // namespace varo::platform
