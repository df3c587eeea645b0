#include "Binary/BinaryFileAdapterWithMetadata/Utils/KnownKeys.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/LogTexts.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <string>
#include <vector>

namespace varo::binary {
namespace {

namespace texts = log_texts::known_keys;

/// What is longer is no misspelled key, and is shown cut. Bytes.
constexpr std::size_t kLongestKey = 64;

/// How many letters of one text have to be added, left out or exchanged to make the other.
std::size_t editDistance(std::string_view left, std::string_view right) {
  std::vector<std::size_t> row(right.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < left.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t k = 0; k < right.size(); ++k) {
      const std::size_t exchanged = diagonal + (left[i] == right[k] ? 0 : 1);
      diagonal = row[k + 1];
      row[k + 1] = std::min({exchanged, row[k] + 1, row[k + 1] + 1});
    }
  }
  return row.back();
}

/// Up to this many letters a key counts as a misspelled form of one of this length.
constexpr std::size_t nearEnough(std::size_t length) {
  return std::max<std::size_t>(1, length / 3);
}

}  // namespace

std::string_view nearestKnownKey(std::string_view key, std::span<const std::string_view> known) {
  if (key.size() > kLongestKey) return {};
  const std::string written = platform::lowerCase(key);
  std::string_view nearest;
  std::size_t least = kLongestKey;
  for (const std::string_view candidate : known) {
    const std::size_t distance = editDistance(written, platform::lowerCase(candidate));
    if (distance >= least || distance > nearEnough(candidate.size())) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest;
}

void warnOfUnknownKeys(std::string_view where, const platform::Dictionary& given,
                       std::span<const std::string_view> known) {
  for (const auto& entry : given) {
    if (std::find(known.begin(), known.end(), entry.key) != known.end()) continue;
    const std::string_view shown = platform::utf8Prefix(entry.key, kLongestKey);
    const std::string_view nearest = nearestKnownKey(entry.key, known);
    if (nearest.empty()) {
      logger().logWarning(texts::kUnknownKey, shown, where);
    } else {
      logger().logWarning(texts::kUnknownKeyNear, shown, where, nearest);
    }
  }
}

}  // namespace varo::binary
