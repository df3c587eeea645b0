#include "Cli/Pages/ManPage.h"

#include "Cli/Arguments/HelpText.h"

#include <fmt/format.h>

#include <algorithm>
#include <string_view>

namespace varo::cli {

namespace {

/// `text` as roff shows it unchanged. A minus sign is one that can be copied into a shell.
std::string escaped(std::string_view text) {
  std::string out;
  for (const char c : text) {
    switch (c) {
      case '\\':
        out += "\\e";
        break;
      case '-':
        out += "\\-";
        break;
      case '\'':
        out += "\\(aq";
        break;
      case '`':
        out += "\\(ga";
        break;
      case '^':
        out += "\\(ha";
        break;
      case '~':
        out += "\\(ti";
        break;
      default:
        out += c;
    }
  }
  // At the beginning of a line they would be requests.
  return out.starts_with('.') ? "\\&" + out : out;
}

/// What is typed as it stands is bold, what it stands for is italic.
std::string styled(std::string_view heading) {
  std::string out;
  while (!heading.empty()) {
    const std::size_t end = std::min(heading.find(' '), heading.size());
    std::string_view word = heading.substr(0, end);
    const std::string_view comma = word.ends_with(',') ? "," : "";
    word.remove_suffix(comma.size());
    const bool isTyped = word.starts_with('-') || word.starts_with("varobinary");
    out += fmt::format("{}\\f{}{}\\fP{}", out.empty() ? "" : " ", isTyped ? 'B' : 'I',
                       escaped(word), comma);
    heading.remove_prefix(std::min(end + 1, heading.size()));
  }
  return out;
}

/// "varobinary upload URL": the program's name, and what follows it.
std::string usageLine(std::string_view usage) {
  const std::size_t blank = std::min(usage.find(' '), usage.size());
  return fmt::format("\\fB{}\\fP{}\n", usage.substr(0, blank), escaped(usage.substr(blank)));
}

std::string taggedList(const std::vector<HelpPage::Entry>& entries) {
  std::string text;
  for (const HelpPage::Entry& entry : entries) {
    text += fmt::format(".TP\n{}\n{}\n", styled(entry.name), escaped(entry.text));
  }
  return text;
}

std::string options(const CommandPage& page) {
  std::string text = ".SH OPTIONS\n";
  for (const PageOption& option : page.options) {
    text += taggedList({{option.heading, option.text}});
  }
  if (!page.name.empty()) {
    text +=
        ".PP\nThe global options of\n.BR varobinary (1)\ncan stand before the command and behind "
        "it.\n";
  }
  return text;
}

std::string upper(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return out;
}

std::string section(const HelpPage::Section& section) {
  const std::string_view title = section.title;
  const std::size_t comma = std::min(title.find(','), title.size());
  std::string text = fmt::format(".SH {}\n", upper(title.substr(0, comma)));
  if (comma < title.size()) text += fmt::format("{}:\n", escaped(title.substr(comma + 2)));
  if (section.lines.empty()) return text + taggedList(section.entries);
  text += ".nf\n";
  for (const std::string& line : section.lines) text += escaped(line) + '\n';
  return text + ".fi\n";
}

/// The page above, and those below or beside.
std::string seeAlso(const CommandPage& page, const std::vector<CommandPage>& all) {
  std::vector<std::string> names;
  const std::string group = page.name.substr(0, page.name.find(' '));
  for (const CommandPage& other : all) {
    const bool isNear = page.name.empty() || other.name.empty() || other.name == group ||
                        other.name.starts_with(group + " ");
    if (isNear && other.name != page.name) names.push_back(manPageName(other));
  }
  std::string text = ".SH SEE ALSO\n";
  for (std::size_t i = 0; i < names.size(); ++i) {
    text += fmt::format(".BR {} (1){}\n", escaped(names[i]), i + 1 < names.size() ? "," : "");
  }
  return text;
}

}  // namespace

std::string manPageName(const CommandPage& page) {
  std::string name = page.name.empty() ? "varobinary" : "varobinary-" + page.name;
  std::replace(name.begin(), name.end(), ' ', '-');
  return name;
}

std::string manPage(const CommandPage& page, const std::vector<CommandPage>& all,
                    const std::string& date) {
  const std::string name = manPageName(page);
  std::string text =
      fmt::format(".TH {} 1 {} \"{}\" \"User Commands\"\n", upper(name), date, versionText());
  // Not adjusted: a long word, such as an example in JSON, would leave a line of blanks.
  text += ".ad l\n";
  text += fmt::format(".SH NAME\n{} \\- {}\n.SH SYNOPSIS\n", escaped(name), escaped(page.summary));
  for (const std::string& usage : page.help.usage) {
    text += (&usage == &page.help.usage.front() ? "" : ".br\n") + usageLine(usage);
  }
  text += fmt::format(".SH DESCRIPTION\n{}\n", escaped(page.help.summary));
  for (const std::string& paragraph : page.help.paragraphs) {
    text += fmt::format(".PP\n{}\n", escaped(paragraph));
  }
  text += options(page);
  for (const HelpPage::Section& part : page.help.sections) {
    if (!part.title.starts_with("Global options")) text += section(part);
  }
  return text + seeAlso(page, all);
}

}  // namespace varo::cli
