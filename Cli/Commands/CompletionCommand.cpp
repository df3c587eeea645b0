#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Commands/CommandList.h"
#include "Cli/Pages/CommandPage.h"
#include "Cli/Pages/Completions.h"
#include "Cli/Run/Session.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace varo::cli {

using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Print a script with which a shell completes commands, options, choices and files.

Usage: varobinary completion bash|zsh|fish

  SHELL                   bash, zsh or fish

Packages install the scripts where shells look for them. Elsewhere, store the script there
(below), or load it when a shell starts. With --json, "result" has "shell" and "script".

Examples:
  varobinary completion bash > ~/.local/share/bash-completion/completions/varobinary
  varobinary completion zsh > ~/.zfunc/_varobinary      # a directory of the array fpath
  varobinary completion fish > ~/.config/fish/completions/varobinary.fish
  source <(varobinary completion bash)                  # for this bash alone
)";

constexpr char kScript[] = "script";

struct CompletionOptions {
  Shell shell = Shell::kBash;
};

platform::Result<Shell> parseShell(const std::string& text) {
  const auto* name = std::find(kShellNames.begin(), kShellNames.end(), text);
  if (name != kShellNames.end()) return static_cast<Shell>(name - kShellNames.begin());
  return usageError(fmt::format("'{}' is not one of {}", text, fmt::join(kShellNames, ", ")));
}

void declare(CommandArguments& arguments, CompletionOptions& options) {
  arguments.parsed("SHELL", options.shell, parseShell, Presence::kRequired);
  arguments.choices("SHELL", {kShellNames.begin(), kShellNames.end()});
}

int run(Session& session, const CompletionOptions& options) {
  const auto pages = commandPages(commandSet());
  if (!pages) return session.finish({Outcome::Kind::kFailure, pages.error()});
  const std::string name(kShellNames.at(static_cast<std::size_t>(options.shell)));
  const Dictionary result{{"shell", name}, {kScript, completion(options.shell, *pages)}};
  return session.finish(
      {Outcome::Kind::kSuccess, result},
      {.success = [](const Dictionary& script) { return script[kScript].textValue(); }});
}

}  // namespace

/// Prints the script with which a shell completes command lines.
Command makeCompletionCommand() {
  return {.name = "completion",
          .arguments = "bash|zsh|fish",
          .summary = "print a script that completes command lines",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
