#include "Cli/Arguments/CommandLine.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/ConnectionArguments.h"
#include "Cli/Arguments/HelpText.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Arguments/Suggestion.h"
#include "Platform/Foundation/Error.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace varo::cli {

using platform::ErrorPtr;

namespace {

/// The command line's definition, and what parsing it has filled in so far.
class Parser {
 public:
  /// Knows the arguments of the commands that are among `words`; those of all without them.
  Parser(const CommandSet& commands, const std::vector<std::string>* words);
  ParsedCommandLine parse(std::vector<std::string> arguments, const std::string& tokenVariable,
                          std::ostream& results, std::ostream& messages);
  [[nodiscard]] std::vector<CommandRow> table() const;

 private:
  void defineGlobal();
  void define(const Command& command, const std::vector<std::string>* words);

  void addToken(const std::string& tokenVariable);
  /// The words that are neither an option nor an argument of the command.
  [[nodiscard]] std::vector<std::string> leftOver() const;
  [[nodiscard]] std::optional<std::string> complaintAboutRest() const;
  [[nodiscard]] std::string explain(const CLI::ParseError& error) const;
  /// The command that was named, or the group that it would be in, such as "blob"; null for none.
  [[nodiscard]] const CLI::App* chosen() const;
  [[nodiscard]] int usage(const std::string& reason, std::ostream& messages) const;

  CLI::App app_;
  GlobalOptions global_;
  std::string token_;
  /// Options that take one or more pairs.
  std::vector<std::string> pairLists_;
  const Command* command_ = nullptr;
  CommandRun run_;
};

/// "blob download" for the command of that name in that group; empty for the program itself.
std::string commandName(const CLI::App* command) {
  if (command == nullptr || command->get_parent() == nullptr) return {};
  const std::string group = commandName(command->get_parent());
  return group.empty() ? command->get_name() : group + " " + command->get_name();
}

OptionRow rowOf(const CLI::Option& option) {
  OptionRow row;
  row.hasPlace = option.get_positional();
  row.takesValue = option.get_items_expected_max() > 0;
  if (row.hasPlace) row.names.push_back(option.get_name(true));
  for (const std::string& name : option.get_lnames()) row.names.push_back("--" + name);
  for (const std::string& name : option.get_snames()) row.names.push_back("-" + name);
  row.choices = CommandArguments::choicesOf(option);
  return row;
}

bool isGroup(const CLI::App* command) { return !command->get_subcommands({}).empty(); }

Parser::Parser(const CommandSet& commands, const std::vector<std::string>* words)
    : app_("", "varobinary") {
  // What is left over is ours to explain: a mistyped command deserves a suggestion.
  app_.allow_extras();
  app_.require_subcommand(0, 1);
  app_.set_version_flag("-V,--version", versionText());
  app_.formatter_fn([&commands](const CLI::App* app, const std::string&, CLI::AppFormatMode) {
    return helpText(commands, commandName(app));
  });
  defineGlobal();
  for (const CommandGroup& group : commands.groups) {
    app_.add_subcommand(std::string(group.name))->fallthrough()->require_subcommand(0, 1);
  }
  for (const Command& command : commands.commands) define(command, words);
}

void Parser::defineGlobal() {
  CommandArguments arguments(app_, global_);
  arguments.flag("--json", global_.json);
  arguments.flag("--quiet", global_.quiet);
  arguments.flag("--yes", global_.yes);
  arguments.flag("--dry-run", global_.dryRun);
  arguments.text("--home", global_.home);
  arguments.list("--header", [this](const std::vector<std::string>& headers) -> ErrorPtr {
    for (const std::string& header : headers) {
      auto pair = parseHeader(header);
      if (!pair) return pair.error();
      setHeader(global_.headers, std::move(pair.value().first), std::move(pair.value().second));
    }
    return nullptr;
  });
  arguments.list("--option", [this](const std::vector<std::string>& pairs) -> ErrorPtr {
    auto options = typedDictionary(pairs);
    if (!options) return options.error();
    global_.options = std::move(options).value();
    return nullptr;
  });
  arguments.text("--token", token_);
  arguments.parsed("--token-file", token_,
                   [](const std::string& path) { return readSecretFile(path, "token"); });
  arguments.exclude("--token-file", "--token");
  arguments.parsed("--policy", global_.policy, parsePolicy);
  arguments.choices("--policy", {"safe", "compatible"});
  declareConnection(arguments, global_.connection);
  arguments.parsed("--parallel", global_.parallel, parseParallel);
  arguments.text("--trace", global_.traceFile);
  arguments.parsed("--log-level", global_.logLevel, parseLogLevel);
  arguments.choices("--log-level",
                    {platform::kLogLevelNames.begin(), platform::kLogLevelNames.end()});
}

void Parser::define(const Command& command, const std::vector<std::string>* words) {
  const std::string name(command.name);
  const std::size_t blank = name.find(' ');
  const bool isGrouped = blank != std::string::npos;
  CLI::App* parent = isGrouped ? app_.get_subcommand(name.substr(0, blank)) : &app_;
  const std::string word = isGrouped ? name.substr(blank + 1) : name;
  CLI::App* app = parent->add_subcommand(word);
  app->fallthrough();
  // A command that is not among the words is not the one that was given. Declaring the arguments of
  // all was 7 % of what a list of one record executes.
  if (words != nullptr && std::find(words->begin(), words->end(), word) == words->end()) return;
  CommandArguments arguments(*app, global_);
  const CommandRun run = command.define(arguments);
  const auto& lists = arguments.pairLists();
  pairLists_.insert(pairLists_.end(), lists.begin(), lists.end());
  app->final_callback([this, &command, run, check = arguments.givenCheck()] {
    if (global_.dryRun && !command.hasDryRun) {
      CommandArguments::reject(std::string(command.name), "there is no --dry-run of this command");
    }
    if (check) check();
    command_ = &command;
    run_ = run;
  });
}

std::vector<CommandRow> Parser::table() const {
  std::vector<CommandRow> rows;
  std::vector<const CLI::App*> apps{&app_};
  for (std::size_t i = 0; i < apps.size(); ++i) {
    CommandRow row{commandName(apps[i]), {}};
    for (const CLI::Option* option : apps[i]->get_options()) row.options.push_back(rowOf(*option));
    rows.push_back(std::move(row));
    for (const CLI::App* command : apps[i]->get_subcommands({})) apps.push_back(command);
  }
  return rows;
}

const CLI::App* Parser::chosen() const {
  const CLI::App* command = &app_;
  while (!command->get_subcommands().empty()) command = command->get_subcommands().front();
  return command == &app_ ? nullptr : command;
}

std::vector<std::string> Parser::leftOver() const {
  std::vector<std::string> rest = app_.remaining(true);
  // CLI11 counts the mark that ends the options among what it could not place.
  const auto mark = std::find(rest.begin(), rest.end(), kEndOfOptions);
  if (mark != rest.end()) rest.erase(mark);
  return rest;
}

std::optional<std::string> Parser::complaintAboutRest() const {
  const CLI::App* command = chosen();
  const CLI::App* group = command == nullptr ? &app_ : command;
  const std::string name = commandName(group);
  const std::vector<std::string> rest = leftOver();
  if (rest.empty()) {
    if (!isGroup(group)) return std::nullopt;
    return fmt::format("no {}command given", name.empty() ? "" : name + " ");
  }

  const std::string& first = rest.front();
  const bool isOption = first.size() > 1 && first.front() == '-';
  std::vector<std::string> candidates;
  if (isOption) {
    for (const CLI::App* app = group; app != nullptr; app = app->get_parent()) {
      for (const CLI::Option* option : app->get_options()) {
        for (const std::string& word : option->get_lnames()) candidates.push_back("--" + word);
      }
    }
  } else if (isGroup(group)) {
    for (const CLI::App* app : group->get_subcommands({})) candidates.push_back(app->get_name());
  } else {
    return fmt::format("'{}' is one argument too many", first);
  }
  const std::string prefix = isOption || name.empty() ? "" : name + " ";
  const auto closest = closestTo(first.substr(0, first.find('=')), candidates);
  return fmt::format("there is no {} '{}{}'{}", isOption ? "option" : "command", prefix, first,
                     closest ? fmt::format("; did you mean '{}{}'?", prefix, *closest) : "");
}

std::string Parser::explain(const CLI::ParseError& error) const {
  // An unknown option or command may be the cause of what was found missing after it.
  const auto complaint = complaintAboutRest();
  const bool isComplete = chosen() != nullptr && !isGroup(chosen());
  if (complaint && (!leftOver().empty() || !isComplete)) return *complaint;
  return error.what();
}

int Parser::usage(const std::string& reason, std::ostream& messages) const {
  const std::string name = commandName(chosen());
  messages << "varobinary: " << reason << "\nTry 'varobinary " << (name.empty() ? "" : name + " ")
           << "--help'.\n"
           << std::flush;
  return kExitUsage;
}

void Parser::addToken(const std::string& tokenVariable) {
  const bool fromOptions = !token_.empty();
  if (!fromOptions && hasHeader(global_.headers, binary::kVaroAuthorization)) return;
  const std::string& token = fromOptions ? token_ : tokenVariable;
  if (token.empty()) return;
  // One rule for what may stand in a header.
  auto header = parseHeader(std::string(binary::kVaroAuthorization) + ": " + token);
  if (!header) {
    CommandArguments::reject(fromOptions ? "--token" : "VARO_TOKEN",
                             header.error()->localizedDescription());
  }
  global_.token = header->second;
  setHeader(global_.headers, std::move(header.value().first), std::move(header.value().second));
}

ParsedCommandLine Parser::parse(std::vector<std::string> arguments,
                                const std::string& tokenVariable, std::ostream& results,
                                std::ostream& messages) {
  try {
    arguments = withListsSpelledOut(arguments, pairLists_);
    std::reverse(arguments.begin(), arguments.end());  // as CLI11 takes them
    app_.parse(std::move(arguments));
    if (const auto complaint = complaintAboutRest())
      return {std::nullopt, usage(*complaint, messages)};
    addToken(tokenVariable);
    completeConnection(global_.connection);
  } catch (const CLI::Success& help) {
    return {std::nullopt, app_.exit(help, results, messages)};
  } catch (const CLI::ParseError& error) {
    return {std::nullopt, usage(explain(error), messages)};
  }
  const platform::LogLevel least = global_.logLevel.value_or(command_->leastLogLevel);
  return {Invocation{std::move(global_), std::string(command_->name), std::move(run_), least}, 0};
}

}  // namespace

std::vector<CommandRow> optionTable(const CommandSet& commands) {
  return Parser(commands, nullptr).table();
}

ParsedCommandLine parseCommandLine(const CommandSet& commands,
                                   const std::vector<std::string>& arguments,
                                   const std::string& tokenVariable, std::ostream& results,
                                   std::ostream& messages) {
  std::vector<std::string> words = arguments;
  // "help upload" is what many try first.
  if (!words.empty() && words.front() == "help") {
    words.erase(words.begin());
    words.emplace_back("--help");
  }
  return Parser(commands, &words).parse(words, tokenVariable, results, messages);
}

}  // namespace varo::cli
