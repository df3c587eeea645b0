#include "Cli/Arguments/Suggestion.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace varo::cli {

namespace {

/// Nobody mistypes a command this long, and the cost is quadratic.
constexpr std::size_t kLongestWord = 64;

/// Edit distance with swaps of neighbours (optimal string alignment).
std::size_t distance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> beforeLast(right.size() + 1);
  std::vector<std::size_t> last(right.size() + 1);
  std::vector<std::size_t> row(right.size() + 1);
  for (std::size_t j = 0; j <= right.size(); ++j) last[j] = j;
  for (std::size_t i = 1; i <= left.size(); ++i) {
    row[0] = i;
    for (std::size_t j = 1; j <= right.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (left[i - 1] == right[j - 1] ? 0 : 1);
      row[j] = std::min({replaced, last[j] + 1, row[j - 1] + 1});
      const bool swapped =
          i > 1 && j > 1 && left[i - 1] == right[j - 2] && left[i - 2] == right[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
    std::swap(beforeLast, last);
    std::swap(last, row);
  }
  return last[right.size()];
}

}  // namespace

std::optional<std::string> closestTo(std::string_view word,
                                     std::span<const std::string> candidates) {
  if (word.empty() || word.size() > kLongestWord) return std::nullopt;
  const std::string typed = platform::lowerCase(word);
  std::optional<std::string> best;
  std::size_t bestDistance = 0;
  for (const std::string& candidate : candidates) {
    const std::size_t edits = distance(typed, candidate);
    const std::size_t limit = std::max<std::size_t>(1, candidate.size() / 3);
    if (edits > limit || (best && edits >= bestDistance)) continue;
    best = candidate;
    bestDistance = edits;
  }
  return best;
}

}  // namespace varo::cli
