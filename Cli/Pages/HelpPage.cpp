#include "Cli/Pages/HelpPage.h"

#include <algorithm>
#include <utility>

namespace varo::cli {

namespace {

using Lines = std::vector<std::string>;

constexpr std::string_view kUsage = "Usage: ";
constexpr std::string_view kProgram = "varobinary";

std::string trimmed(std::string_view line) {
  const std::size_t first = line.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return std::string(line.substr(first, line.find_last_not_of(' ') + 1 - first));
}

/// What lies between empty lines.
std::vector<Lines> paragraphsOf(std::string_view text) {
  std::vector<Lines> paragraphs(1);
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('\n'), text.size());
    if (end > 0) paragraphs.back().emplace_back(text.substr(0, end));
    if (end == 0 && !paragraphs.back().empty()) paragraphs.emplace_back();
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  if (paragraphs.back().empty()) paragraphs.pop_back();
  return paragraphs;
}

void append(std::string& text, std::string_view more) {
  if (!text.empty() && !more.empty()) text += ' ';
  text += more;
}

std::string filled(const Lines& lines) {
  std::string text;
  for (const std::string& line : lines) append(text, trimmed(line));
  return text;
}

/// A name is indented by two blanks, and has two behind it before its text; further lines of the
/// text are indented further.
std::vector<HelpPage::Entry> entriesOf(const Lines& lines) {
  std::vector<HelpPage::Entry> entries;
  for (const std::string& line : lines) {
    if (line.starts_with("   ") && !entries.empty()) {
      append(entries.back().text, trimmed(line));
      continue;
    }
    const std::string rest = trimmed(line);
    const std::size_t gap = std::min(rest.find("  "), rest.size());
    entries.push_back({rest.substr(0, gap), trimmed(std::string_view(rest).substr(gap))});
  }
  return entries;
}

Lines usageOf(const Lines& lines) {
  Lines usage;
  for (const std::string& line : lines) {
    std::string rest = trimmed(line.starts_with(kUsage) ? line.substr(kUsage.size()) : line);
    if (rest.starts_with(kProgram)) {
      usage.push_back(std::move(rest));
    } else {
      append(usage.back(), rest);
    }
  }
  return usage;
}

HelpPage::Section sectionOf(const Lines& lines) {
  HelpPage::Section section;
  section.title = lines.front().substr(0, lines.front().size() - 1);
  const Lines rest(lines.begin() + 1, lines.end());
  const bool areAsTheyStand =
      section.title.starts_with("Examples") || section.title.starts_with("First steps");
  if (!areAsTheyStand) {
    section.entries = entriesOf(rest);
  } else {
    for (const std::string& line : rest) section.lines.push_back(line.substr(2));
  }
  return section;
}

}  // namespace

HelpPage parseHelp(std::string_view text) {
  HelpPage page;
  for (const Lines& lines : paragraphsOf(text)) {
    const bool hasTitle =
        lines.size() > 1 && lines.front().ends_with(':') && lines[1].starts_with("  ");
    if (page.summary.empty()) {
      page.summary = filled(lines);
    } else if (lines.front().starts_with(kUsage)) {
      page.usage = usageOf(lines);
    } else if (hasTitle) {
      page.sections.push_back(sectionOf(lines));
    } else if (lines.front().starts_with("  ")) {
      page.entries = entriesOf(lines);
    } else {
      page.paragraphs.push_back(filled(lines));
    }
  }
  return page;
}

}  // namespace varo::cli
