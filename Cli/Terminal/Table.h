#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace varo::cli {

/// A table of text for people: a head line, then the rows, columns two blanks apart.
///
/// Where the width is limited, the widest columns that may shrink are cut until the table fits.
class Table {
 public:
  enum class Align { kLeft, kRight };
  struct Column {
    std::string title;
    Align align = Align::kLeft;
    /// Whether its values may be cut; a column of numbers or states is better left whole.
    bool shrinks = true;
  };

  explicit Table(std::vector<Column> columns);

  /// Cells that are missing are empty, surplus ones are dropped.
  void addRow(std::vector<std::string> cells);

  /// Columns of the terminal that the table takes when nothing is cut.
  [[nodiscard]] std::size_t fullWidth() const;

  /// The lines, each with its newline; `width` in columns of the terminal, none for no limit.
  [[nodiscard]] std::string text(std::optional<std::size_t> width) const;

 private:
  [[nodiscard]] std::vector<std::size_t> widths(std::optional<std::size_t> limit) const;
  [[nodiscard]] std::string line(const std::vector<std::string>& cells,
                                 const std::vector<std::size_t>& widths) const;

  std::vector<Column> columns_;  // constant after construction
  std::vector<std::vector<std::string>> rows_;
};

}  // namespace varo::cli
