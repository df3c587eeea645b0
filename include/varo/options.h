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

/// When a request that has failed is sent again: on failures of the connection and on a status of
/// 408, 429, 500, 502, 503 or 504, where a repeat does no harm. One that makes or changes something
/// is repeated only where the server certainly has not carried it out. A download that was cut goes
/// on at its next byte.
///
/// The wait before the attempt n is drawn evenly between nothing and `firstWait` * 2^(n-2), at most
/// `longestWait`, so that those that failed together do not come back together. Where the server
/// says how long (Retry-After), that counts instead.
struct Retry {
  /// How often a request is sent, 1 to 100; 1: never again. Of a download: without a byte in
  /// between. By default a transfer gets over some seconds without its server, a restart say, and
  /// who waits for it hears within ten seconds that the server is really gone.
  int attempts = 5;
  /// Short, since most failures are over at the next request.
  std::chrono::milliseconds firstWait = std::chrono::milliseconds(500);
  /// From `firstWait` to 24 h. With more attempts: often enough to notice soon that it works again.
  std::chrono::milliseconds longestWait = std::chrono::seconds(30);
  /// A server that wants to be left alone for longer than this is not asked again: whether to wait
  /// that long is for the application to decide, by `Failure::retryAfter`. 0 to 24 h.
  std::chrono::milliseconds longestRetryAfter = std::chrono::minutes(1);
  /// All waits of one operation together. Much more than one request needs, as a transfer of hours
  /// meets many failures, and still an end. 0 or more.
  std::chrono::milliseconds budget = std::chrono::minutes(5);
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
  Retry retry = {};
  /// Gets what the operations of this client log, from `logLevel` on. Empty: nothing is logged, as
  /// outcomes tell all that a program needs. Called on threads of the library, several at once, in
  /// the middle of their work: it has to be quick. What it throws goes no further.
  std::function<void(const LogRecord&)> log = {};
  LogLevel logLevel = LogLevel::kWarning;
};

}  // namespace varo
