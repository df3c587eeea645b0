#pragma once

#include "varo/outcome.h"
#include "varo/units.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

namespace varo {

/// What a client shows to its server.
struct Credentials {
  /// The service's token, sent as the header "X-Pelmar-Authorization" to the service's own servers
  /// only. Empty for none.
  std::string token = {};
  /// What the requests to an object store are signed with; never logged. Empty for none.
  std::string accessKey = {};
  std::string secretKey = {};
  /// Of keys that are good for a while; goes with each request that is signed.
  std::string sessionToken = {};
};

/// How connections are secured. Certificates are always verified.
struct Tls {
  /// Certificates (PEM) to trust besides the system's; empty for none.
  std::filesystem::path caFile = {};
};

enum class LogLevel : std::uint8_t { kTrace, kDebug, kInfo, kWarning, kError, kFatal };

/// The settings of one client. Clients with other settings can live side by side.
struct Options {
  /// Where the service is: http or https, with or without a slash at its end. Of an `ObjectStore`
  /// it stays empty.
  std::string url = {};
  /// Asked before each operation, on the thread that starts it. Empty: nothing is shown.
  std::function<Outcome<Credentials>()> credentials = {};
  /// Further headers of each request to the service.
  std::map<std::string, std::string> headers = {};
  Tls tls = {};
  /// Bytes of an upload that are sent at once. 1 MiB is what services are used to.
  Bytes chunkSize = 1_MiB;
  /// Transfers of this client that run at once; others wait for their turn.
  int parallel = 5;
  /// Until a connection stands, name look-up and TLS included.
  std::chrono::milliseconds connectTimeout = std::chrono::seconds(30);
  /// How long no byte may move before a request is given up.
  std::chrono::milliseconds stallTimeout = std::chrono::seconds(60);
};

}  // namespace varo
