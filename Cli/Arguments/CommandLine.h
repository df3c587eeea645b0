#pragma once

#include "Cli/Arguments/GlobalOptions.h"
#include "Cli/Commands/BlobDeleteCommand.h"
#include "Cli/Commands/BlobDownloadCommand.h"
#include "Cli/Commands/BlobPathCommand.h"
#include "Cli/Commands/DeleteCommand.h"
#include "Cli/Commands/DemoCommand.h"
#include "Cli/Commands/DownloadCommand.h"
#include "Cli/Commands/ListCommand.h"
#include "Cli/Commands/ObjectGetCommand.h"
#include "Cli/Commands/ObjectPutCommand.h"
#include "Cli/Commands/SandboxCommand.h"
#include "Cli/Commands/UpdateCommand.h"
#include "Cli/Commands/UploadCommand.h"

#include <optional>
#include <ostream>
#include <string>
#include <variant>
#include <vector>

namespace varo::cli {

/// Exit statuses that scripts rely on; an interrupted program ends with
/// `Interrupts::kExitStatus`.
inline constexpr int kExitUsage = 2;

using CommandOptions =
    std::variant<ListOptions, UploadOptions, DownloadOptions, UpdateOptions, DeleteOptions,
                 AbortOptions, BlobDownloadOptions, BlobPathOptions, BlobDeleteOptions,
                 ObjectGetOptions, ObjectPutOptions, SandboxCommandOptions, DemoOptions>;

/// What was asked for.
struct Invocation {
  GlobalOptions global;
  CommandOptions command;
};

/// Either an invocation, or the exit status where there is nothing left to do: after help and the
/// version, and after wrong usage, which is explained on `messages`.
struct ParsedCommandLine {
  std::optional<Invocation> invocation;
  int exitStatus = 0;
};

/// Reads the arguments, without the program's name. `tokenVariable` is the value of VARO_TOKEN,
/// empty where it is not set.
[[nodiscard]] ParsedCommandLine parseCommandLine(const std::vector<std::string>& arguments,
                                                 const std::string& tokenVariable,
                                                 std::ostream& results, std::ostream& messages);

}  // namespace varo::cli
