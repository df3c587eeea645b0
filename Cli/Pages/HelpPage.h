#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace varo::cli {

/// A help text, taken apart at its empty lines and indentations.
struct HelpPage {
  /// "--name N" and what it means; "list URL" and what it does.
  struct Entry {
    std::string name;
    std::string text;
  };
  /// Lines below a line that ends in a colon.
  struct Section {
    std::string title;
    std::vector<Entry> entries;
    /// As they stand, without the indentation; instead of entries where the title says "Examples"
    /// or "First steps".
    std::vector<std::string> lines;
  };

  std::string summary;
  /// A line for each way to call it.
  std::vector<std::string> usage;
  std::vector<std::string> paragraphs;
  /// Arguments and options, which have no title.
  std::vector<Entry> entries;
  std::vector<Section> sections;
};

[[nodiscard]] HelpPage parseHelp(std::string_view text);

}  // namespace varo::cli
