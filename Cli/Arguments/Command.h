#pragma once

#include "Platform/Logging/LogSink.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace varo::cli {

class CommandArguments;
class Session;

/// What a command does with the arguments that it was given. Returns the exit status.
using CommandRun = std::function<int(Session&)>;

/// Everything that the program knows of one command: a file in Commands/ makes it.
struct Command {
  /// One word, or two where the first one names a group, such as "blob path".
  std::string_view name;
  /// As the overview shows them behind the name; it does not show those of a group's commands.
  std::string_view arguments;
  /// What it does, for the overview or the help of its group. May have several lines.
  std::string_view summary;
  /// The whole help but its last line, which is the same for all.
  std::string help;
  /// Declares the arguments, and returns what runs with their values once they have been read.
  std::function<CommandRun(CommandArguments&)> define;
  /// Whether it knows `--dry-run`; for others that is wrong usage, as they would do it all the
  /// same.
  bool hasDryRun = false;
  /// The least level of log lines that are shown where no option names one.
  platform::LogLevel leastLogLevel = platform::LogLevel::kWarning;
};

/// Commands that share the first word of their names.
struct CommandGroup {
  std::string_view name;
  /// For the overview. May have several lines.
  std::string_view summary;
  /// Its help: what stands before and behind the list of its commands.
  std::string_view introduction;
  std::string_view closing;
};

/// In the order of the help.
struct CommandSet {
  std::vector<CommandGroup> groups;
  std::vector<Command> commands;
};

/// A `Command::define` out of a function that binds the arguments to the members of `Options`, and
/// one that runs with these.
template <typename Options>
auto definition(void (*declare)(CommandArguments&, Options&),
                int (*run)(Session&, const Options&)) {
  return [declare, run](CommandArguments& arguments) -> CommandRun {
    const auto options = std::make_shared<Options>();
    declare(arguments, *options);
    return [options, run](Session& session) { return run(session, *options); };
  };
}

}  // namespace varo::cli
