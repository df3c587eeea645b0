#include "Cli/Pages/CommandPage.h"

#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/HelpText.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace varo::cli {

using platform::ErrorPtr;
using platform::Result;
using Entries = std::vector<HelpPage::Entry>;

namespace {

constexpr std::string_view kHelp = "--help";

/// The names of a heading: "-h, --help" has two, "--name N" and "URL" have one.
std::vector<std::string> namesOf(const std::string& heading) {
  std::vector<std::string> names;
  std::size_t at = 0;
  while (at < heading.size()) {
    const std::size_t end = std::min(heading.find_first_of(", ", at), heading.size());
    if (!names.empty() && heading[at] != '-') break;
    names.push_back(heading.substr(at, end - at));
    if (end == heading.size() || heading[end] == ' ') break;
    at = end + 2;
  }
  return names;
}

/// Of the help, what is about an argument or option.
Entries optionEntries(const HelpPage& help) {
  Entries entries = help.entries;
  for (const HelpPage::Section& section : help.sections) {
    if (!section.title.starts_with("Global options")) continue;
    entries.insert(entries.end(), section.entries.begin(), section.entries.end());
  }
  return entries;
}

/// The options of a row with what the help says about each.
Result<std::vector<PageOption>> join(const CommandRow& row, Entries entries) {
  std::vector<PageOption> options;
  for (const OptionRow& option : row.options) {
    const auto found = std::find_if(entries.begin(), entries.end(), [&](const auto& entry) {
      const auto names = namesOf(entry.name);
      return std::find(names.begin(), names.end(), option.names.front()) != names.end();
    });
    const bool isHelp = option.names.front() == kHelp;
    if (found == entries.end() && !isHelp) {
      return usageError(
          fmt::format("the help of '{}' does not tell of {}", row.name, option.names.front()));
    }
    if (found == entries.end()) {
      options.push_back({option, "-h, --help", "Show a short help."});
      continue;
    }
    const bool showsValue = option.hasPlace || namesOf(found->name).back() != found->name;
    if (!isHelp && showsValue != option.takesValue && option.names.size() == 1) {
      return usageError(fmt::format("the help of '{}' is wrong about the value of {}", row.name,
                                    option.names.front()));
    }
    options.push_back({option, found->name, found->text});
    entries.erase(found);
  }
  if (entries.empty()) return options;
  return usageError(
      fmt::format("the help of '{}' tells of {}, which is not there", row.name, entries[0].name));
}

std::string inOneLine(std::string_view text) {
  std::string line(text);
  std::replace(line.begin(), line.end(), '\n', ' ');
  return line;
}

std::string summaryOf(const CommandSet& commands, const std::string& name) {
  for (const Command& command : commands.commands) {
    if (command.name == name) return inOneLine(command.summary);
  }
  for (const CommandGroup& group : commands.groups) {
    if (group.name == name) return inOneLine(group.summary);
  }
  return "move files between this machine and the services of a back end";
}

/// The words behind `name` of the commands whose names begin with it.
std::vector<std::string> wordsBehind(const std::string& name, const std::vector<CommandRow>& rows) {
  std::vector<std::string> words;
  for (const CommandRow& row : rows) {
    if (row.name.empty() || row.name == name) continue;
    const std::string prefix = name.empty() ? "" : name + " ";
    if (!row.name.starts_with(prefix)) continue;
    const std::string word = row.name.substr(prefix.size());
    if (word.find(' ') == std::string::npos) words.push_back(word);
  }
  return words;
}

}  // namespace

std::string PageOption::shortText() const {
  std::size_t end = text.size();
  for (const std::string_view stop : {". ", "; ", " ("}) end = std::min(end, text.find(stop));
  std::string line = text.substr(0, end);
  if (line.ends_with('.')) line.pop_back();
  return line;
}

PageOption::Values PageOption::values() const {
  if (!row.takesValue) return Values::kNone;
  if (!row.choices.empty()) return Values::kChoices;
  const std::string value = heading.substr(std::min(heading.find(' '), heading.size() - 1) + 1);
  const std::string_view what = row.hasPlace ? heading : value;
  if (what == "FILE" || what == "PATH") return Values::kFile;
  return what == "DIR" ? Values::kDirectory : Values::kAny;
}

Result<std::vector<CommandPage>> commandPages(const CommandSet& commands) {
  std::vector<CommandPage> pages;
  const std::vector<CommandRow> rows = optionTable(commands);
  for (const CommandRow& row : rows) {
    CommandPage page{row.name,
                     summaryOf(commands, row.name),
                     parseHelp(helpBody(commands, row.name)),
                     {},
                     wordsBehind(row.name, rows)};
    auto options = join(row, optionEntries(page.help));
    if (!options) return options.error();
    page.options = std::move(options).value();
    pages.push_back(std::move(page));
  }
  return pages;
}

}  // namespace varo::cli
