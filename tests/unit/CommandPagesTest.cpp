#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Commands/CommandList.h"
#include "Cli/Pages/CommandPage.h"
#include "Cli/Pages/Completions.h"
#include "Cli/Pages/ManPage.h"
#include "Platform/Foundation/Error.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace varo::cli {
namespace {

using testing::HasSubstr;

std::string replaced(std::string text, const std::string& what, const std::string& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

TEST(CommandPages, EveryOptionAndCommandIsInItsManPageAndInEveryCompletion) {
  const auto pages = commandPages(commandSet());
  ASSERT_TRUE(pages) << pages.error()->localizedDescription();
  const std::string bash = completion(Shell::kBash, *pages);
  const std::string zsh = completion(Shell::kZsh, *pages);
  const std::string fish = completion(Shell::kFish, *pages);
  const std::vector<CommandRow> table = optionTable(commandSet());
  ASSERT_EQ(pages->size(), table.size());
  ASSERT_GT(table.size(), commandSet().commands.size());
  for (std::size_t i = 0; i < table.size(); ++i) {
    const CommandRow& row = table[i];
    const std::string man = manPage((*pages)[i], *pages, "2000-01-01");
    const std::string shown = replaced(man, "\\-", "-");
    if (!row.name.empty()) {
      EXPECT_THAT(shown, HasSubstr("varobinary-" + replaced(row.name, " ", "-")));
      EXPECT_THAT(bash, HasSubstr("'" + row.name + "') words='"));
      EXPECT_THAT(zsh, HasSubstr("_varobinary_" + replaced(row.name, " ", "_") + " ;;"));
    }
    const std::size_t inZsh =
        zsh.find(std::string("\n_varobinary") + (row.name.empty() ? "" : "_") +
                 replaced(row.name, " ", "_") + "() {");
    ASSERT_NE(inZsh, std::string::npos) << row.name;
    const std::string zshPart = zsh.substr(inZsh, zsh.find("\n}", inZsh) - inZsh);
    for (const OptionRow& option : row.options) {
      for (const std::string& name : option.names) {
        EXPECT_THAT(shown,
                    HasSubstr("\\f" + std::string(option.hasPlace ? "I" : "B") + name + "\\fP"));
        // The program's, which go with every command, stand at one place.
        if (option.hasPlace || (!row.name.empty() && option.names.front() == "--help")) continue;
        EXPECT_THAT(zshPart, HasSubstr("'*" + name)) << row.name;
        const bool isLong = name.starts_with("--");
        const std::string inFish =
            row.name.empty() ? "complete -c varobinary -" : "'__varobinary_at " + row.name + "'";
        EXPECT_THAT(fish, testing::ContainsRegex(inFish + ".* ?" + (isLong ? "l " : "s ") +
                                                 name.substr(isLong ? 2 : 1) + " "));
        const std::size_t inBash = bash.find("      '" + row.name + "') words='--");
        ASSERT_NE(inBash, std::string::npos) << row.name;
        const std::string line = bash.substr(inBash, bash.find('\n', inBash) - inBash);
        EXPECT_THAT(replaced(line, "'", " "), HasSubstr(" " + name + " ")) << row.name;
      }
    }
  }
}

TEST(CommandPages, AHelpThatTellsOtherOptionsThanTheParserHasIsAnError) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"  --size N    bytes\n", ""},
      {"  --size      bytes\n", "value of --size"},
      {"  --seize N   bytes\n", "does not tell of --size"},
      {"  --size N    bytes\n  --more      not there\n", "tells of --more"},
  };
  for (const auto& [options, refusal] : cases) {
    std::string size;
    Command command;
    command.name = "send";
    command.help = "Send it.\n\nUsage: varobinary send\n\n" + options;
    command.define = [&](CommandArguments& arguments) -> CommandRun {
      arguments.text("--size", size);
      return [](Session&) { return 0; };
    };
    const auto pages = commandPages({{}, {command}});
    EXPECT_EQ(pages.ok(), refusal.empty()) << options;
    if (!pages) {
      EXPECT_THAT(pages.error()->localizedDescription(), HasSubstr(refusal));
    }
  }
}

}  // namespace
}  // namespace varo::cli
