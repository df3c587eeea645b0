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

/// What a client shows to its server. `<varo/credentials.h>` reads them from a file, the
/// environment or a command.
struct Credentials {
  /// The service's token, sent as the header "X-Pelmar-Authorization" to the service's own servers
  /// only. Empty for none.
  std::string token = {};
  /// What the requests to an object store are signed with; never logged. Empty for none.
  std::string accessKey = {};
  std::string secretKey = {};
  /// Of keys that are good for a while; goes with each request that is signed.
  std::string sessionToken = {};
  /// When they expire, by this computer's clock. With it they are kept for all operations of the
  /// client until shortly before: a tenth of the time that is left when they are given, at most a
  /// minute. None: they serve one operation, and the next one asks again.
  std::optional<std::chrono::system_clock::time_point> expires = {};
};

/// How connections are secured. Certificates are always verified.
struct Tls {
  /// Certificates (PEM) to trust besides the system's; empty for none.
  std::filesystem::path caFile = {};
};

enum class LogLevel : std::uint8_t { kTrace, kDebug, kInfo, kWarning, kError, kFatal };

/// One message of the library. Never holds a token, a key or a signature.
struct LogRecord {
  LogLevel level = LogLevel::kInfo;
  std::string message;
  /// The part of the library: "Binary", "TaskEngine", ...
  std::string logger;
  /// Where in the library; both live as long as the process.
  const char* file = "";
  int line = 0;
};

/// The settings of one client. Clients with other settings can live side by side.
struct Options {
  /// Where the service is: http or https, with or without a slash at its end. Of an `ObjectStore`
  /// it stays empty.
  std::string url = {};
  /// Asked for credentials when an operation begins, and by credentials that say when they expire
  /// before any request that comes later than that; and once more where a server says that those it
  /// was shown are not good any more: then the request is repeated, if there are others now.
  ///
  /// Called on threads of the library, by one at a time; others wait for the same answer, so it
  /// must not wait for an operation of the same client. What it throws is a
  /// `Kind::kUnauthorized`. Empty: nothing is shown.
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
  /// Gets what the operations of this client log, from `logLevel` on. Empty: nothing is logged, as
  /// outcomes tell all that a program needs. Called on threads of the library, several at once, in
  /// the middle of their work: it has to be quick. What it throws goes no further.
  std::function<void(const LogRecord&)> log = {};
  LogLevel logLevel = LogLevel::kWarning;
};

}  // namespace varo
