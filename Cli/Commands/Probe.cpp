#include "Cli/Commands/Probe.h"

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ServerAddress.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/TimeText.h"
#include "Platform/Network/TransportFailure.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <fmt/format.h>

#include <cstdint>
#include <utility>

namespace varo::cli {

using binary::ServerAddress;
using platform::Dictionary;
using platform::HttpResponseInfo;
using platform::TransportFailure;
using platform::VRONetworkUtility;
using SystemClock = std::chrono::system_clock;

namespace {

/// As much as an answer to a probe may have; of a template it is all.
constexpr std::uint64_t kLongestBody = std::uint64_t{1024} * 1024;
/// Stores refuse signatures that are further off than 15 minutes; this leaves room for more drift.
constexpr std::chrono::minutes kFurthestClock{5};

constexpr char kStatus[] = "status";
constexpr char kDate[] = "date";
constexpr char kBody[] = "body";

/// How far a failed request came.
enum class Stage { kOptions, kName, kProxy, kConnection, kTls, kAnswer };

Stage stageOf(TransportFailure failure) {
  switch (failure) {
    case TransportFailure::kInvalidUrl:
    case TransportFailure::kInvalidHeader:
    case TransportFailure::kInvalidBody:
    case TransportFailure::kInvalidConfiguration:
    case TransportFailure::kTrustFileUnusable:
    case TransportFailure::kClientCertificateUnusable:
      return Stage::kOptions;
    case TransportFailure::kNameNotFound:
      return Stage::kName;
    case TransportFailure::kProxyNotReached:
    case TransportFailure::kProxyRefused:
      return Stage::kProxy;
    case TransportFailure::kTls:
    case TransportFailure::kCertificateNotTrusted:
    case TransportFailure::kPinMismatch:
      return Stage::kTls;
    case TransportFailure::kNoAnswer:
    case TransportFailure::kCutShort:
    case TransportFailure::kBadAnswer:
    case TransportFailure::kTooLarge:
    case TransportFailure::kRedirectRefused:
    case TransportFailure::kTooManyRedirects:
      return Stage::kAnswer;
    default:
      return Stage::kConnection;
  }
}

/// Told of the steps before the one at which a request failed, or of all.
void tellSteps(Session& session, Checkup& checkup, const ServerAddress& server, Stage end) {
  const auto& proxy = session.options().connection.proxy;
  if (end <= Stage::kName) return;
  if (proxy) {
    checkup.notTried(steps::kName, "left to the proxy");
  } else {
    checkup.good(steps::kName, fmt::format("{} was found", server.host));
  }
  if (end <= Stage::kConnection) return;
  const std::string through = !proxy ? ""
                              : proxy->fromEnvironment
                                  ? " (proxies as the environment says)"
                                  : fmt::format(" through the proxy {}", proxy->url);
  checkup.good(steps::kConnection,
               fmt::format("connected to {}:{}{}", server.host, server.port, through));
  if (end <= Stage::kTls) return;
  if (server.scheme == "http") {
    checkup.notTried(steps::kTls, "http: nothing is encrypted, and nobody proves who he is");
  } else {
    checkup.good(steps::kTls, session.options().connection.pinnedKeys.empty()
                                  ? "the server's certificate is trusted"
                                  : "the server's certificate is trusted, its key is a pinned one");
  }
}

std::string_view stepOf(Stage stage) {
  switch (stage) {
    case Stage::kOptions:
      return steps::kConfiguration;
    case Stage::kName:
      return steps::kName;
    case Stage::kProxy:
    case Stage::kConnection:
      return steps::kConnection;
    case Stage::kTls:
      return steps::kTls;
    case Stage::kAnswer:
      break;
  }
  return steps::kService;
}

void send(Session& session, const Probe& probe, const Session::Blocks& blocks) {
  const auto settings = session.settings();
  // What is wrong is to be told, not to be got over, unless somebody asks for that.
  if (!session.options().connection.retries) settings->retry.reset();
  const Dictionary options =
      binary::OperationSettings::forRequest(settings, {}, settings->limitsOf(kLongestBody));
  const auto answered =
      blocks.guarded([blocks](const std::optional<platform::Data>& data, const Dictionary& info,
                              const platform::NetworkErrorPtr& error) {
        if (error != nullptr) return blocks.onFailure(platform::ErrorPtr(error));
        const auto head = info[platform::kHttpResponse].objectAs<HttpResponseInfo>();
        Dictionary reply;
        if (head != nullptr) {
          reply.set(kStatus, head->statusCode());
          reply.set(kDate, head->headerField("Date").value_or(""));
        }
        const auto bytes = data.value_or(platform::Data()).readAll(kLongestBody);
        if (bytes) reply.set(kBody, *bytes);
        blocks.onSuccess(reply);
      });
  if (probe.body) {
    VRONetworkUtility::POST(probe.url, {}, probe.headers, platform::RequestType::kJson, *probe.body,
                            options, answered);
  } else {
    VRONetworkUtility::GET(probe.url, {}, probe.headers, options, answered);
  }
}

}  // namespace

std::string originOf(const std::string& url) {
  const auto server = ServerAddress::of(url);
  if (!server) return {};
  return url.substr(0, binary::endOfAuthority(url));
}

std::optional<Reply> reach(Session& session, Checkup& checkup, const Probe& probe) {
  const auto server = ServerAddress::of(probe.url);
  if (!server) {
    checkup.wrong(
        steps::kConfiguration,
        problem(Kind::kInvalidArgument, fmt::format("'{}' is no http or https URL", probe.url),
                "The URL must start with http:// or https://."));
    return std::nullopt;
  }
  const Outcome outcome =
      session.await([&](const Session::Blocks& blocks) { send(session, probe, blocks); }, {},
                    Session::Ending::kIsTold);
  if (session.interrupts().raised()) return std::nullopt;
  if (outcome.kind != Outcome::Kind::kSuccess) {
    const platform::ErrorPtr error = outcome.value.error();
    const auto failure = error == nullptr ? std::nullopt : platform::transportFailureOf(*error);
    const Stage stage = failure ? stageOf(*failure) : Stage::kConnection;
    tellSteps(session, checkup, *server, stage);
    checkup.wrong(stepOf(stage), describeFailure(outcome.value));
    return std::nullopt;
  }
  tellSteps(session, checkup, *server, Stage::kAnswer);
  const Dictionary reply = outcome.value.dictionaryValue();
  return Reply{static_cast<int>(reply[kStatus].integerValue()),
               platform::httpTime(reply[kDate].textValue()), SystemClock::now(),
               reply[kBody].textValue()};
}

void checkClock(Checkup& checkup, const Reply& reply) {
  if (!reply.date) {
    return checkup.notTried(steps::kClock, "the server does not say which time it is there");
  }
  const auto ahead = reply.received - *reply.date;
  const auto off = std::chrono::duration_cast<std::chrono::milliseconds>(
      ahead < SystemClock::duration::zero() ? -ahead : ahead);
  if (off <= kFurthestClock) {
    return checkup.good(steps::kClock, "this machine's and the server's agree");
  }
  const bool isAhead = ahead > SystemClock::duration::zero();
  checkup.wrong(steps::kClock,
                problem(Kind::kOther,
                        fmt::format("this machine's clock is {} {} the server's",
                                    formatDuration(off), isAhead ? "ahead of" : "behind"),
                        "Set the clock of this machine: signatures and tokens are good for a "
                        "while only."));
}

}  // namespace varo::cli
