#pragma once

#include "varo/events.h"
#include "varo/outcome.h"
#include "varo/units.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

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

enum class TlsVersion : std::uint8_t { k12, k13 };

/// How connections are secured. Certificates are always verified.
struct Tls {
  /// Certificates (PEM) to trust besides the system's; empty for none.
  std::filesystem::path caFile = {};
  /// The same, as a directory with one certificate a file, named as `openssl rehash` does.
  std::filesystem::path caDirectory = {};
  /// Shown to servers that ask who connects (PEM), with the certificates between it and their
  /// authority. Empty for none. Proxies do not get it.
  std::filesystem::path clientCertificate = {};
  /// Its private key (PEM); empty: in the same file.
  std::filesystem::path clientKey = {};
  /// Of the key; empty for none.
  std::string clientKeyPassword = {};
  /// Public keys of which every https server must have one, besides a certificate that is trusted;
  /// that of an object store too, where the service sends the client there. Each is "sha256//" and
  /// the Base64 of the digest of the key in DER form. Empty: any.
  std::vector<std::string> pinnedKeys = {};
  TlsVersion minimumVersion = TlsVersion::k12;
};

/// What the connections of a client go through.
struct Proxy {
  /// http, https, socks4, socks4a, socks5 or socks5h, host and port, and nothing else:
  /// "http://proxy.example:3128". "socks4" and "socks5" have host names looked up here, all others
  /// by the proxy.
  std::string url = {};
  /// What the proxy asks for. Never in a failure or a log.
  std::string user = {};
  std::string password = {};
  /// Hosts that are reached without it: a name stands for itself and all below it, an IP address or
  /// a network ("10.0.0.0/8") for what is addressed by number, "*" for everything.
  std::vector<std::string> bypass = {};
  /// In place of all of the above: what the environment says when the client is made, in
  /// `http_proxy`, `https_proxy`, `all_proxy` and `no_proxy`; but for the first, in upper case too.
  bool fromEnvironment = false;
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
  /// Asked for credentials when an operation begins, and by credentials that say when they expire
  /// before any request that comes later than that; and once more where a server says that those it
  /// was shown are not good any more: then the request is repeated, if there are others now.
  ///
  /// Called on threads of the library, once at a time; others wait for the same answer, 5 minutes
  /// at most, and 5 s where a transfer that was given up has to clean up before its outcome. An
  /// operation of the same client that is begun in it is a `Kind::kInvalidArgument`. What it throws
  /// is a `Kind::kUnauthorized`. Empty: nothing is shown.
  std::function<Outcome<Credentials>()> credentials = {};
  /// Further headers of each request to the service.
  std::map<std::string, std::string> headers = {};
  Tls tls = {};
  /// None: connections are made directly, whatever the environment says.
  std::optional<Proxy> proxy = {};
  /// Bytes that all transfers of this client together may move in a second, in each direction.
  /// None: as many as the line takes. One transfer may have a limit of its own below that:
  /// `UploadOptions::perSecond` and so on.
  std::optional<Bytes> perSecond = {};
  /// The header "User-Agent". Empty: "varobinary/" and the version of the library.
  std::string userAgent = {};
  /// Bytes of an upload that are sent at once. 1 MiB is what services are used to.
  Bytes chunkSize = 1_MiB;
  /// Transfers of this client that run at once; others wait for their turn.
  int parallel = 5;
  /// Memory that the transfers of this client may need together. Each reserves what it needs at
  /// most before it begins, one to some MiB for each of its requests that run at once, and gives it
  /// back at its end; others wait for their turn, in the order in which they came. One that alone
  /// needs more is a `Kind::kInvalidArgument` that says how much. Not counted is what belongs to
  /// the application: the bytes of a `Source::bytes`, the records of a list. None: as much as
  /// `parallel` transfers need, with the defaults that is below 64 MiB.
  std::optional<Bytes> memory = {};
  /// Until a connection stands, name look-up and TLS included.
  std::chrono::milliseconds connectTimeout = std::chrono::seconds(30);
  /// How long no byte may move before a request is given up; what `perSecond` holds back does not
  /// count.
  std::chrono::milliseconds stallTimeout = std::chrono::seconds(60);
  Retry retry = {};
  /// Gets what the operations of this client log, from `logLevel` on. Empty: nothing is logged, as
  /// outcomes tell all that a program needs. Called on threads of the library, several at once, in
  /// the middle of their work: it has to be quick. What it throws goes no further.
  std::function<void(const LogRecord&)> log = {};
  LogLevel logLevel = LogLevel::kWarning;
  /// Told of each request that has ended, and of each operation, for metrics and traces. Empty:
  /// nothing is measured.
  ///
  /// - Called on threads of the library with no lock held, several at once; the events of one
  ///   operation one after the other, that of the operation last. They are told before the outcome
  ///   is, unless a request is still being cancelled then.
  /// - In the middle of the work: they have to be quick, and must not wait for a transfer. What
  ///   they throw goes no further.
  /// - An attempt that is never sent, as its operation is cancelled before, has no event.
  std::function<void(const RequestEvent&)> onRequest = {};
  std::function<void(const OperationEvent&)> onOperation = {};
};

}  // namespace varo
