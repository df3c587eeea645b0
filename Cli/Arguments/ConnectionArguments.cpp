#include "Cli/Arguments/ConnectionArguments.h"

#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Network/ConfigurationRules.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

namespace varo::cli {

using platform::ErrorPtr;
using platform::NetworkConfiguration;
using platform::ProxyConfiguration;
using platform::Result;

namespace {

constexpr std::string_view kSchemeEnd = "://";
constexpr std::string_view kPinStart = "sha256//";

void complete(std::string& value, const char* variable) {
  const char* given = std::getenv(variable);
  if (value.empty() && given != nullptr) value = given;
}

/// The option that a field of the configuration comes from.
std::string_view optionOf(std::string_view field) {
  constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kOptions = {
      {{"caFile", "--cacert"},
       {"clientCertificate", "--cert"},
       {"clientKey", "--key"},
       {"clientKeyPassword", "--key-password-file"},
       {"pinnedKeys", "--pinned-key"},
       {"userAgent", "--user-agent"},
       {"proxy.user", "--proxy: its user"},
       {"proxy.password", "--proxy: its password"},
       {"proxy.url", "--proxy"}}};
  for (const auto& [name, option] : kOptions) {
    if (name == field) return option;
  }
  return "--proxy-env";
}

void rejectUnlessFile(const char* option, const std::string& path) {
  std::error_code none;
  if (path.empty() || std::filesystem::is_regular_file(path, none)) return;
  CommandArguments::reject(option, fmt::format("there is no file '{}'", path));
}

}  // namespace

Result<ProxyConfiguration> parseProxy(const std::string& text) {
  const std::size_t scheme = text.find(kSchemeEnd);
  const std::size_t begin = scheme == std::string::npos ? 0 : scheme + kSchemeEnd.size();
  const std::size_t end = text.find_first_of("/?#", begin);
  // The last one: those in a user or a password are often left as they are.
  const std::size_t at = text.rfind('@', end);
  ProxyConfiguration proxy;
  proxy.url = scheme == std::string::npos ? "http://" : text.substr(0, begin);
  if (at == std::string::npos || at < begin) {
    proxy.url += text.substr(begin);
    return proxy;
  }
  proxy.url += text.substr(at + 1);
  const std::string_view credentials = std::string_view(text).substr(begin, at - begin);
  const std::size_t colon = credentials.find(':');
  proxy.user = platform::percentDecode(credentials.substr(0, colon));
  if (colon != std::string_view::npos) {
    proxy.password = platform::percentDecode(credentials.substr(colon + 1));
  }
  if (proxy.user.empty()) return usageError("there is no user before the '@'");
  return proxy;
}

std::string pinFrom(const std::string& text) {
  return text.starts_with(kPinStart) ? text : std::string(kPinStart) + text;
}

void declareConnection(CommandArguments& arguments, Connection& connection) {
  arguments.parsed("--connect-timeout", connection.connectTimeout, parseSeconds);
  arguments.parsed("--stall-timeout", connection.stallTimeout, parseSeconds);
  arguments.parsed("--retry", connection.retries, parseRetries);
  arguments.parsed("--retry-max-time", connection.retryMaxTime, parseSeconds);
  arguments.parsed("--limit-rate", connection.limitRate, parseChunkSize);
  arguments.parsed("--proxy", connection.proxy, parseProxy);
  arguments.parsed("--proxy-password-file", connection.proxyPassword,
                   [](const std::string& path) { return readSecretFile(path, "password"); });
  arguments.flag("--proxy-env", connection.proxyFromEnvironment);
  arguments.exclude("--proxy-env", "--proxy");
  arguments.text("--cacert", connection.caFile);
  arguments.text("--cert", connection.certificate);
  arguments.text("--cert-key,--key", connection.key);
  arguments.parsed("--key-password-file", connection.keyPassword,
                   [](const std::string& path) { return readSecretFile(path, "password"); });
  arguments.list("--pinned-key", [&connection](const std::vector<std::string>& pins) -> ErrorPtr {
    for (const std::string& pin : pins) connection.pinnedKeys.push_back(pinFrom(pin));
    return nullptr;
  });
  arguments.text("--user-agent", connection.userAgent);
}

void completeConnection(Connection& connection) {
  rejectUnlessFile("--cacert", connection.caFile);
  rejectUnlessFile("--cert", connection.certificate);
  rejectUnlessFile("--key", connection.key);
  if (!connection.certificate.empty()) complete(connection.keyPassword, "VARO_KEY_PASSWORD");
  if (connection.proxyFromEnvironment) {
    connection.proxy.emplace().fromEnvironment = true;
  } else if (connection.proxy && !connection.proxy->user.empty()) {
    // What is given beside the address is the safer way, so it is not overruled by it.
    if (!connection.proxyPassword.empty()) connection.proxy->password = connection.proxyPassword;
    complete(connection.proxy->password, "VARO_PROXY_PASSWORD");
  } else if (!connection.proxyPassword.empty()) {
    CommandArguments::reject("--proxy-password-file", "needs a user: --proxy http://USER@HOST");
  }
  const auto mistake = platform::mistakeIn(networkConfiguration(connection));
  if (mistake) {
    // "clientCertificate" is how the library calls it.
    const bool hasNoCertificate = connection.certificate.empty() && !connection.key.empty();
    CommandArguments::reject(std::string(optionOf(mistake->field)),
                             hasNoCertificate ? "needs --cert" : mistake->what);
  }
}

NetworkConfiguration networkConfiguration(const Connection& connection) {
  NetworkConfiguration network;
  if (connection.connectTimeout) network.connectTimeout = *connection.connectTimeout;
  if (connection.stallTimeout) network.stallTimeout = *connection.stallTimeout;
  network.caFile = connection.caFile;
  network.clientCertificate = connection.certificate;
  network.clientKey = connection.key;
  network.clientKeyPassword = connection.keyPassword;
  network.pinnedKeys = connection.pinnedKeys;
  network.proxy = connection.proxy;
  network.userAgent = connection.userAgent;
  if (connection.limitRate)
    network.bytesPerSecond = static_cast<std::uint64_t>(*connection.limitRate);
  return network;
}

}  // namespace varo::cli
