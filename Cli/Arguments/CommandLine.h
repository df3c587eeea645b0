#pragma once

#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/GlobalOptions.h"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace varo::cli {

/// Exit statuses that scripts rely on; an interrupted program ends with
/// `Interrupts::kExitStatus`.
inline constexpr int kExitUsage = 2;

/// What was asked for.
struct Invocation {
  GlobalOptions global;
  /// As in `Command`.
  std::string command;
  CommandRun run;
  /// The least level of log lines that are shown.
  platform::LogLevel leastLogLevel = platform::LogLevel::kWarning;
};

/// Either an invocation, or the exit status where there is nothing left to do: after help and the
/// version, and after wrong usage, which is explained on `messages`.
struct ParsedCommandLine {
  std::optional<Invocation> invocation;
  int exitStatus = 0;
};

/// One option or argument, as the parser knows it.
struct OptionRow {
  /// "--help" and "-h"; of an argument with a place its name alone, such as "URL".
  std::vector<std::string> names;
  bool hasPlace = false;
  bool takesValue = false;
  /// What the value can be; empty where it can be anything.
  std::vector<std::string> choices;
};

/// What may stand behind one command.
struct CommandRow {
  /// As in `Command`; of a group its own; empty for the program itself.
  std::string name;
  std::vector<OptionRow> options;
};

/// The parser's table: the program, the groups, and the commands in the order of the help.
[[nodiscard]] std::vector<CommandRow> optionTable(const CommandSet& commands);

/// Reads the arguments, without the program's name, as one of `commands`. `tokenVariable` is the
/// value of VARO_TOKEN, empty where it is not set.
[[nodiscard]] ParsedCommandLine parseCommandLine(const CommandSet& commands,
                                                 const std::vector<std::string>& arguments,
                                                 const std::string& tokenVariable,
                                                 std::ostream& results, std::ostream& messages);

}  // namespace varo::cli
