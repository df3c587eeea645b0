#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Cli/Arguments/ConnectionArguments.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/LogSink.h"

#include <optional>
#include <string>

namespace varo::cli {

/// What may be said of any command.
struct GlobalOptions {
  /// What the user typed to start the program, for lines that can be copied.
  std::string program = "varobinary";
  bool json = false;
  /// No progress and no notes on standard error.
  bool quiet = false;
  /// Ask nothing, and take every question for answered with yes.
  bool yes = false;
  /// Say what would be removed, and remove nothing. Only for commands that know it.
  bool dryRun = false;
  /// Directory of the documents, downloads and library directories; empty: the user's own.
  std::string home;
  /// Request headers, the token's among them.
  platform::Dictionary headers;
  /// The token of `--token`, `--token-file` or VARO_TOKEN, which is also among the headers. None
  /// where the token was given as a header.
  std::optional<std::string> token;
  /// The options dictionary of an operation.
  platform::Dictionary options;
  binary::TransferPolicy policy = binary::TransferPolicy::kSafe;
  Connection connection;
  /// Transfers at once where a command has several.
  int parallel = 5;
  /// Where the spans of the requests go; empty: nowhere.
  std::string traceFile;
  /// None: the default, warning.
  std::optional<platform::LogLevel> logLevel;
};

}  // namespace varo::cli
