#include "Cli/Run/ClientRun.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Run/TraceFile.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Logging/VaroNativeFacade.h"

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
  const Log log(record.logger, {});
  (log.*kWrites[static_cast<std::size_t>(record.level)])(record.message,
                                                         {record.file, record.line});
}

}  // namespace

Options clientOptions(const GlobalOptions& global, std::string url) {
  Options options;
  options.url = std::move(url);
  for (const platform::DictionaryEntry& header : global.headers) {
    const bool isToken =
        platform::equalIgnoringCase(header.key, binary::kVaroAuthorization) && global.token;
    if (!isToken) options.headers[header.key] = header.value.textValue();
  }
  if (global.token) {
    options.credentials = [token = *global.token]() -> varo::Outcome<Credentials> {
      return Credentials{.token = token};
    };
  }
  options.tls.caFile = global.caFile;
  options.parallel = global.parallel;
  if (global.connectTimeout) options.connectTimeout = *global.connectTimeout;
  if (global.stallTimeout) options.stallTimeout = *global.stallTimeout;
  if (global.logLevel && *global.logLevel != platform::LogLevel::kOff) {
    options.log = passOn;
    options.logLevel = static_cast<varo::LogLevel>(*global.logLevel);
  }
  if (auto trace = TraceFile::ofProcess()) {
    options.onRequest = [trace](const RequestEvent& event) { trace->add(event); };
  }
  return options;
}

}  // namespace varo::cli
