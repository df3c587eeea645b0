#pragma once

#include "Platform/Network/NetworkTuning.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varo::platform {

/// A proxy that the connections of a transport go through.
struct ProxyConfiguration {
  /// http, https, socks4, socks4a, socks5 or socks5h, host and port, and nothing else:
  /// "http://proxy.example:3128". "socks4" and "socks5" have host names looked up here, all others
  /// by the proxy. Without a port: 443 for https, else 1080.
  std::string url = {};
  /// What the proxy asks for: of http and https as "Basic" (RFC 7617), of socks5 as RFC 1929 has
  /// it; socks4 knows a user alone. Never in an error or a log.
  std::string user = {};
  std::string password = {};
  /// Hosts that are reached without it: a name stands for itself and all below it, an IP address or
  /// a network ("10.0.0.0/8") for what is addressed by number, "*" for everything.
  std::vector<std::string> bypass = {};
  /// In place of all of the above: what the environment of the process says when the transport is
  /// made, in `http_proxy` (lower case alone: a server sets the other for its scripts from what a
  /// client sends), `https_proxy`, `all_proxy`, `no_proxy`, and the latter three in upper case.
  bool fromEnvironment = false;
};

enum class TlsVersion : std::uint8_t { k12, k13 };

/// What an application may set of the default transport. One that contradicts itself, or cannot be
/// read, fails every request with `HttpTransportError::kInvalidConfiguration`, by the name of the
/// field; `mistakeIn` in ConfigurationRules.h tells before.
///
/// There is deliberately no switch that turns the verification of certificates off, and no
/// environment variable has a say unless `ProxyConfiguration::fromEnvironment` asks for it: neither
/// in what is trusted, nor in the proxy, nor in whether the keys of connections are written down
/// (libcurl creates the file that SSLKEYLOGFILE names, and it stays empty).
struct NetworkConfiguration {
  /// Until a connection stands, name look-up, proxy and TLS included. Zero or less: the default,
  /// 30 s.
  std::chrono::milliseconds connectTimeout = tuning::kConnectTimeout;
  /// How long no byte may move before a transfer is given up; what a rate limit holds back does not
  /// count. Zero or less: the default, 60 s.
  std::chrono::milliseconds stallTimeout = tuning::kStallTimeout;
  /// Certificates (PEM) to trust besides the system's; empty for none. A file that cannot be read
  /// fails every https request.
  std::string caFile;
  /// The same, as a directory with one certificate (PEM) a file, named as `openssl rehash` does.
  std::string caDirectory;
  /// Shown to servers that ask who connects: a file (PEM) with the certificate and those between it
  /// and the server's authority. Empty for none. Proxies do not get it.
  std::string clientCertificate;
  /// Its private key (PEM); empty: in the same file. The password is that of the key, if it has
  /// one.
  std::string clientKey;
  std::string clientKeyPassword;
  /// Public keys of which every https server must have one, besides a certificate that is trusted:
  /// "sha256//" and the Base64 of the digest of the key in DER form. Empty: any.
  std::vector<std::string> pinnedKeys;
  TlsVersion minimumTls = TlsVersion::k12;
  /// None: connections are made directly.
  std::optional<ProxyConfiguration> proxy;
  /// The header "User-Agent"; empty: none is sent.
  std::string userAgent;
  /// Bytes of bodies that all transfers together move in a second, received and sent apart from
  /// each other. 0: no limit.
  std::uint64_t bytesPerSecond = 0;
  /// Transfers that run at once; at least 1. Later ones wait their turn, without a time-out.
  std::size_t maxActiveTransfers = tuning::kMaxActiveTransfers;
};

/// A time-out as it is used: `otherwise` where none is set, or zero or less; at most a day.
[[nodiscard]] constexpr std::chrono::milliseconds boundedTimeout(
    std::optional<std::chrono::milliseconds> value, std::chrono::milliseconds otherwise) noexcept {
  constexpr std::chrono::milliseconds kLongest = std::chrono::hours(24);
  return value && value->count() > 0 ? std::min(*value, kLongest) : otherwise;
}

}  // namespace varo::platform
