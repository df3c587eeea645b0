#include "Cli/Terminal/Table.h"

#include "Cli/Terminal/TerminalText.h"

#include <algorithm>
#include <numeric>
#include <utility>

namespace varo::cli {

namespace {

constexpr std::size_t kGap = 2;
/// A cut column keeps this much, even if the table then does not fit.
constexpr std::size_t kNarrowest = 8;

std::size_t widthOf(const std::vector<std::size_t>& columns) {
  const std::size_t gaps = columns.empty() ? 0 : columns.size() - 1;
  return std::accumulate(columns.begin(), columns.end(), kGap * gaps);
}

}  // namespace

Table::Table(std::vector<Column> columns) : columns_(std::move(columns)) {}

void Table::addRow(std::vector<std::string> cells) {
  cells.resize(columns_.size());
  for (std::string& cell : cells) cell = printable(cell);
  rows_.push_back(std::move(cells));
}

std::vector<std::size_t> Table::widths(std::optional<std::size_t> limit) const {
  std::vector<std::size_t> result;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t widest = displayWidth(columns_[i].title);
    for (const auto& row : rows_) widest = std::max(widest, displayWidth(row[i]));
    result.push_back(widest);
  }
  if (!limit) return result;

  std::size_t total = widthOf(result);
  // One column of the terminal at a time, always from the widest, so that they end up alike.
  while (total > *limit) {
    std::optional<std::size_t> widest;
    for (std::size_t i = 0; i < result.size(); ++i) {
      const bool mayShrink = columns_[i].shrinks && result[i] > kNarrowest;
      if (mayShrink && (!widest || result[i] > result[*widest])) widest = i;
    }
    if (!widest) break;
    --result[*widest];
    --total;
  }
  return result;
}

std::size_t Table::fullWidth() const { return widthOf(widths(std::nullopt)); }

std::string Table::line(const std::vector<std::string>& cells,
                        const std::vector<std::size_t>& widths) const {
  std::string text;
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const std::string cell = columns_[i].shrinks ? cutMiddleToWidth(cells[i], widths[i]) : cells[i];
    const std::size_t used = displayWidth(cell);
    const std::string padding(widths[i] > used ? widths[i] - used : 0, ' ');
    if (i > 0) text.append(kGap, ' ');
    text += columns_[i].align == Align::kRight ? padding + cell : cell + padding;
  }
  text.erase(text.find_last_not_of(' ') + 1);
  return text + "\n";
}

std::string Table::text(std::optional<std::size_t> width) const {
  const std::vector<std::size_t> columnWidths = widths(width);
  std::vector<std::string> titles;
  for (const Column& column : columns_) titles.push_back(column.title);
  std::string result = line(titles, columnWidths);
  for (const auto& row : rows_) result += line(row, columnWidths);
  return result;
}

}  // namespace varo::cli
