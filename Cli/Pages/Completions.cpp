#include "Cli/Pages/Completions.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace varo::cli {

using Values = PageOption::Values;

namespace {

constexpr std::string_view kOrigin =
    "# Completion of varobinary. Generated with the program from its table of options.\n";

bool takesFiles(const CommandPage& page) {
  return std::any_of(page.options.begin(), page.options.end(), [](const PageOption& option) {
    return option.row.hasPlace && option.values() == Values::kFile;
  });
}

/// What can be its first argument, where that is one of a few words.
std::vector<std::string> placeChoices(const CommandPage& page) {
  for (const PageOption& option : page.options) {
    if (option.row.hasPlace) return option.row.choices;
  }
  return {};
}

/// The options of a page, but not the arguments with a place. "--help" counts as one of the
/// program's, which are allowed everywhere.
template <typename Visit>
void forOptions(const CommandPage& page, Visit visit) {
  for (const PageOption& option : page.options) {
    const bool isProgramsOwn = !page.name.empty() && option.row.names.front() == "--help";
    if (!option.row.hasPlace && !isProgramsOwn) visit(option);
  }
}

/// All names of its options, and of the program's.
std::string optionNames(const CommandPage& page, const CommandPage& program) {
  std::vector<std::string> names;
  const auto take = [&](const PageOption& option) {
    names.insert(names.end(), option.row.names.begin(), option.row.names.end());
  };
  forOptions(page, take);
  if (!page.name.empty()) forOptions(program, take);
  return fmt::format("{}", fmt::join(names, " "));
}

/// The names of the groups, with '|' between them.
std::string groups(const std::vector<CommandPage>& pages) {
  std::vector<std::string> names;
  for (const CommandPage& page : pages) {
    if (!page.name.empty() && !page.words.empty()) names.push_back(page.name);
  }
  return fmt::format("{}", fmt::join(names, "|"));
}

/// Every option that takes a value, with '|' between them.
std::string valueOptions(const std::vector<CommandPage>& pages) {
  std::vector<std::string> names;
  for (const CommandPage& page : pages) {
    forOptions(page, [&](const PageOption& option) {
      const std::string& name = option.row.names.front();
      const bool isKnown = std::find(names.begin(), names.end(), name) != names.end();
      if (option.row.takesValue && !isKnown) names.push_back(name);
    });
  }
  return fmt::format("{}", fmt::join(names, "|"));
}

/// `text` between the single quotes of a shell.
std::string quoted(std::string_view text, std::string_view forQuote) {
  std::string out = "'";
  for (const char c : text) c == '\'' ? out += forQuote : out += c;
  return out + "'";
}

std::string functionName(const CommandPage& page) {
  std::string name = page.name.empty() ? "_varobinary" : "_varobinary_" + page.name;
  std::replace(name.begin(), name.end(), ' ', '_');
  return name;
}

std::string_view bashValues(const PageOption& option) {
  switch (option.values()) {
    case Values::kFile:
      return "files -f";
    case Values::kDirectory:
      return "files -d";
    case Values::kNone:
    case Values::kAny:
    case Values::kChoices:
      break;
  }
  return {};
}

std::string zshValues(const PageOption& option) {
  switch (option.values()) {
    case Values::kNone:
      return {};
    case Values::kAny:
      return ":value: ";
    case Values::kChoices:
      return fmt::format(":value:({})", fmt::join(option.row.choices, " "));
    case Values::kFile:
      return ":file:_files";
    case Values::kDirectory:
      return ":directory:_files -/";
  }
  return {};
}

std::string zshDescription(std::string_view text) {
  std::string out;
  for (const char c : text) {
    if (c == '[' || c == ']' || c == ':' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

std::string zshSpecs(const CommandPage& page) {
  std::string text;
  forOptions(page, [&](const PageOption& option) {
    const std::string description = zshDescription(option.shortText());
    for (const std::string& name : option.row.names) {
      const std::string spec = fmt::format("*{}{}[{}]{}", name, option.row.takesValue ? "=" : "",
                                           description, zshValues(option));
      text += fmt::format("    {}\n", quoted(spec, "'\\''"));
    }
  });
  int place = 0;
  for (const PageOption& option : page.options) {
    if (!option.row.hasPlace) continue;
    ++place;
    // Of any other nothing is known; a spec for it would keep options from being completed there.
    const std::string& name = option.row.names.front();
    if (option.values() == Values::kFile) text += fmt::format("    '{}:{}:_files'\n", place, name);
    if (option.values() != Values::kChoices) continue;
    text += fmt::format("    '{}:{}:({})'\n", place, name, fmt::join(option.row.choices, " "));
  }
  return text;
}

const CommandPage& pageOf(const std::vector<CommandPage>& pages, const std::string& name) {
  return *std::find_if(pages.begin(), pages.end(),
                       [&](const CommandPage& page) { return page.name == name; });
}

/// The page of the command that `word` leads to behind `page`.
const CommandPage& behind(const CommandPage& page, const std::string& word,
                          const std::vector<CommandPage>& pages) {
  return pageOf(pages, page.name.empty() ? word : page.name + " " + word);
}

/// The function of one page. That of a group calls that of the command which was typed. The
/// program's has the options that are allowed everywhere: those it calls see its variables.
std::string zshFunction(const CommandPage& page, const std::vector<CommandPage>& pages) {
  const std::string own = page.name.empty() ? "global" : "own";
  const std::string all = page.name.empty() ? "$global" : "$own $global";
  std::string text =
      fmt::format("{}() {{\n  local -a {}=(\n{}  )\n", functionName(page), own, zshSpecs(page));
  if (page.words.empty()) return text + fmt::format("  _arguments {}\n}}\n\n", all);
  text += "  local curcontext=$curcontext state line\n  local -A opt_args\n  local -a commands=(\n";
  for (const std::string& word : page.words) {
    const std::string entry = word + ":" + zshDescription(behind(page, word, pages).summary);
    text += fmt::format("    {}\n", quoted(entry, "'\\''"));
  }
  text += fmt::format(
      "  )\n  _arguments -C {} '1:command:->command' '*::argument:->argument'\n"
      "  case $state in\n    command) _describe command commands ;;\n    argument)\n"
      "      case $words[1] in\n",
      all);
  for (const std::string& word : page.words) {
    text += fmt::format("        {}) {} ;;\n", word, functionName(behind(page, word, pages)));
  }
  return text + "      esac ;;\n  esac\n}\n\n";
}

std::string fishOption(const CommandPage& page, const PageOption& option) {
  std::string line = "complete -c varobinary";
  if (!page.name.empty()) line += fmt::format(" -n '__varobinary_at {}'", page.name);
  for (const std::string& name : option.row.names) {
    line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  switch (option.values()) {
    case Values::kNone:
      break;
    case Values::kAny:
      line += " -x";
      break;
    case Values::kChoices:
      line += fmt::format(" -xa '{}'", fmt::join(option.row.choices, " "));
      break;
    case Values::kFile:
      line += " -r -F";
      break;
    case Values::kDirectory:
      line += " -xa '(__fish_complete_directories)'";
      break;
  }
  return fmt::format("{} -d {}\n", line, quoted(option.shortText(), "\\'"));
}

std::string bashCompletion(const std::vector<CommandPage>& pages) {
  std::string options, values, words, files;
  for (const CommandPage& page : pages) {
    options += fmt::format("      {}) words={} ;;\n", quoted(page.name, ""),
                           quoted(optionNames(page, pages.front()), ""));
    if (!page.words.empty()) {
      words += fmt::format("      {}) words='{}' ;;\n", quoted(page.name, ""),
                           fmt::join(page.words, " "));
    }
    if (const auto choices = placeChoices(page); !choices.empty()) {
      words +=
          fmt::format("      {}) words='{}' ;;\n", quoted(page.name, ""), fmt::join(choices, " "));
    }
    if (takesFiles(page)) files += fmt::format("      {}) files=-f ;;\n", quoted(page.name, ""));
    forOptions(page, [&](const PageOption& option) {
      const std::string where = page.name.empty() ? "*" : quoted(page.name, "");
      const std::string_view kind = bashValues(option);
      const std::string& name = option.row.names.front();
      if (!option.row.choices.empty()) {
        values += fmt::format("      {}:{}) words='{}' ;;\n", where, name,
                              fmt::join(option.row.choices, " "));
      } else if (!kind.empty()) {
        values += fmt::format("      {}:{}) files={} ;;\n", where, name, kind.substr(6));
      }
    });
  }
  return fmt::format(R"({0}
_varobinary() {{
  local current=${{COMP_WORDS[COMP_CWORD]}} option= command= words= files= word i
  # "=" is a word of its own here: "--name=a" is three.
  [[ $current == "=" ]] && current=
  for ((i = 1; i < COMP_CWORD; i++)); do
    word=${{COMP_WORDS[i]}}
    [[ $word == "=" ]] && continue
    if [[ -n $option ]]; then
      option=
      continue
    fi
    case $word in
      {1}) option=$word ;;
      -*) ;;
      *)
        case $command in
          '') command=$word ;;
          {2}) command+=" $word" ;;
        esac ;;
    esac
  done
  if [[ -n $option ]]; then
    case $command:$option in
{3}    esac
  elif [[ $current == -* ]]; then
    case $command in
{4}    esac
  else
    case $command in
{5}{6}    esac
  fi
  if [[ -n $files ]]; then
    local IFS=$'\n'
    type compopt >/dev/null 2>&1 && compopt -o filenames 2>/dev/null
    COMPREPLY=($(compgen "$files" -- "$current"))
  else
    COMPREPLY=($(compgen -W "$words" -- "$current"))
  fi
}}
complete -F _varobinary varobinary
)",
                     kOrigin, valueOptions(pages), groups(pages), values, options, words, files);
}

std::string zshCompletion(const std::vector<CommandPage>& pages) {
  std::string text = "#compdef varobinary\n" + std::string(kOrigin) + '\n';
  for (const CommandPage& page : pages) text += zshFunction(page, pages);
  return text + "_varobinary \"$@\"\n";
}

std::string fishCompletion(const std::vector<CommandPage>& pages) {
  std::string ofGroups = groups(pages);
  std::replace(ofGroups.begin(), ofGroups.end(), '|', ' ');
  std::string ofValues = valueOptions(pages);
  std::replace(ofValues.begin(), ofValues.end(), '|', ' ');
  std::string text = fmt::format(R"({}
# The command that was typed, such as "upload" or "blob path".
function __varobinary_command
    set -l words (commandline -opc)
    set -e words[1]
    set -l command
    set -l isValue 0
    for word in $words
        if test $isValue = 1
            set isValue 0
        else if contains -- $word {}
            set isValue 1
        else if not string match -q -- '-*' $word
            set -a command $word
            if test (count $command) = 2; or not contains -- $word {}
                break
            end
        end
    end
    string join ' ' -- $command
end
function __varobinary_at
    set -l command (__varobinary_command)
    test "$command" = "$argv"
end
complete -c varobinary -f
)",
                                 kOrigin, ofValues, ofGroups);
  for (const CommandPage& page : pages) {
    for (const std::string& word : page.words) {
      text += fmt::format("complete -c varobinary -n '__varobinary_at {}' -a {} -d {}\n", page.name,
                          word, quoted(behind(page, word, pages).summary, "\\'"));
    }
    if (const auto choices = placeChoices(page); !choices.empty()) {
      text += fmt::format("complete -c varobinary -n '__varobinary_at {}' -a '{}'\n", page.name,
                          fmt::join(choices, " "));
    }
    if (takesFiles(page)) {
      text += fmt::format("complete -c varobinary -n '__varobinary_at {}' -F\n", page.name);
    }
    forOptions(page, [&](const PageOption& option) { text += fishOption(page, option); });
  }
  return text;
}

}  // namespace

std::string completion(Shell shell, const std::vector<CommandPage>& pages) {
  switch (shell) {
    case Shell::kBash:
      return bashCompletion(pages);
    case Shell::kZsh:
      return zshCompletion(pages);
    case Shell::kFish:
      return fishCompletion(pages);
  }
  return {};
}

}  // namespace varo::cli
