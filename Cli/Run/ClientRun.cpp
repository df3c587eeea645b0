#include "Cli/Run/ClientRun.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Run/TraceFile.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Logging/VaroNativeFacade.h"

#include <fmt/format.h>

#include <cstddef>
#include <string_view>
#include <utility>

namespace varo::cli {

namespace {

/// Into the log of the process, which decides what is shown.
void passOn(const LogRecord& record) {
  using Log = platform::VaroNativeFacade;
  using Write = void (Log::*)(std::string_view, platform::LogLocation) const;
  static constexpr Write kWrites[] = {&Log::logTrace,   &Log::logDebug, &Log::logInfo,
                                      &Log::logWarning, &Log::logError, &Log::logFatal};
  // Within the client's work this would come back here, and so without an end.
  const platform::JobContext::Scope outside(nullptr);
  const Log log(record.logger, {});
  (log.*kWrites[static_cast<std::size_t>(record.level)])(record.message,
                                                         {record.file, record.line});
}

}  // namespace

Options clientOptions(const GlobalOptions& global, std::string url) {
  Options options;
  options.url = std::move(url);
  for (const auto& header : global.headers) {
    const bool isToken =
        platform::equalIgnoringCase(header.key, binary::kVaroAuthorization) && global.token;
    if (!isToken) options.headers[header.key] = header.value.textValue();
  }
  if (global.token) {
    options.credentials = [token = *global.token]() -> varo::Outcome<Credentials> {
      return Credentials{.token = token};
    };
  }
  const Connection& connection = global.connection;
  options.tls.caFile = connection.caFile;
  options.tls.clientCertificate = connection.certificate;
  options.tls.clientKey = connection.key;
  options.tls.clientKeyPassword = connection.keyPassword;
  options.tls.pinnedKeys = connection.pinnedKeys;
  if (const auto& proxy = connection.proxy) {
    options.proxy = Proxy{.url = proxy->url,
                          .user = proxy->user,
                          .password = proxy->password,
                          .fromEnvironment = proxy->fromEnvironment};
  }
  if (connection.limitRate) {
    options.perSecond = Bytes(static_cast<std::uint64_t>(*connection.limitRate));
  }
  options.userAgent = connection.userAgent;
  options.retry = retryOf(global);
  options.parallel = global.parallel;
  if (connection.connectTimeout) options.connectTimeout = *connection.connectTimeout;
  if (connection.stallTimeout) options.stallTimeout = *connection.stallTimeout;
  if (global.logLevel && *global.logLevel != platform::LogLevel::kOff) {
    options.log = passOn;
    options.logLevel = static_cast<varo::LogLevel>(*global.logLevel);
  }
  if (auto trace = TraceFile::ofProcess()) {
    options.onRequest = [trace](const RequestEvent& event) { trace->add(event); };
  }
  return options;
}

void tellOfAttempt(Session& session, int attempt) {
  session.output().note(
      fmt::format("Waiting for attempt {} of {}", attempt, retryOf(session.options()).attempts));
}

}  // namespace varo::cli
