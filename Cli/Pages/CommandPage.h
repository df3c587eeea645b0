#pragma once

#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandLine.h"
#include "Cli/Pages/HelpPage.h"
#include "Platform/Foundation/Result.h"

#include <string>
#include <vector>

namespace varo::cli {

/// An option or argument: what the parser knows of it and what the help says about it.
struct PageOption {
  OptionRow row;
  /// As the help shows it, "--meta K=V [K=V]...".
  std::string heading;
  std::string text;

  /// The beginning of the text: what a shell shows beside the option.
  [[nodiscard]] std::string shortText() const;

  enum class Values { kNone, kAny, kChoices, kFile, kDirectory };
  [[nodiscard]] Values values() const;
};

/// All about one command.
struct CommandPage {
  /// As in `CommandRow`.
  std::string name;
  /// What the overview says about it, in one line.
  std::string summary;
  HelpPage help;
  std::vector<PageOption> options;
  /// The words that may follow: of a group its commands; of the program groups and commands.
  std::vector<std::string> words;
};

/// A page for the program, each group and each command. An error names what the parser knows and
/// the help does not tell, or the help tells and the parser does not know.
[[nodiscard]] platform::Result<std::vector<CommandPage>> commandPages(const CommandSet& commands);

}  // namespace varo::cli
