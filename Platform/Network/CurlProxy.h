#pragma once

#include "Platform/Network/ConfigurationRules.h"
#include "Platform/Network/CurlUrl.h"
#include "Platform/Network/NetworkConfiguration.h"

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace varo::platform {

/// One proxy. Private to the curl adapter.
struct CurlProxy {
  std::string url;  // with a port, without user and password: errors name it
  std::string user;
  std::string password;
};

/// Which proxy leads to which server. Immutable; private to the curl adapter.
class CurlProxies {
 public:
  /// None at all.
  CurlProxies() = default;

  /// Those of a configuration. Reads the environment where it is asked to.
  [[nodiscard]] static std::variant<CurlProxies, ConfigurationMistake> of(
      const std::optional<ProxyConfiguration>& configuration);

  /// Null: the server is reached directly. Decided here and not by libcurl, which does not say
  /// afterwards whether it was the proxy that it could not reach. Valid while this object lives.
  [[nodiscard]] const CurlProxy* find(const CurlUrl& url) const;

 private:
  std::optional<CurlProxy> forHttp_;
  std::optional<CurlProxy> forHttps_;
  std::vector<std::string> bypass_;
};

/// Whether `host`, a name or an IP address, is one of those that an entry of
/// `ProxyConfiguration::bypass` stands for. Letter case does not count.
[[nodiscard]] bool isHostWithin(std::string_view host, std::string_view entry);

}  // namespace varo::platform
