#pragma once

#include "Client/PartPlan.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::detail {

/// Which parts of an object a partial file has, and of which version. Its text stands in a file
/// beside that one, so that another process can go on.
struct PartsRecord {
  /// A digest of the object's address: entity tags are unique to that alone.
  std::string object;
  /// A strong one, with its quotes.
  std::string entityTag;
  std::uint64_t objectSize = 0;
  /// Where in the object the plan begins.
  std::uint64_t first = 0;
  PartPlan plan;
  /// One for each part of the plan.
  std::vector<bool> isThere;

  /// Bytes of the parts that are there.
  [[nodiscard]] std::uint64_t bytesThere() const;
  /// The last one where none is missing.
  [[nodiscard]] std::size_t firstMissing() const;
  /// The least size of a file that has them.
  [[nodiscard]] std::uint64_t end() const;

  /// Two lines: JSON with a version, and its SHA-256. Empty for what cannot be noted: an object of
  /// no strong entity tag, or of one that is too long.
  [[nodiscard]] std::string text() const;
  /// None for what is damaged, of another version of this format, or says what cannot be.
  [[nodiscard]] static std::optional<PartsRecord> parse(std::string_view text);

  /// Bytes of a text, at most.
  static constexpr std::size_t kMaxText = std::size_t{64} << 10U;
  /// Parts of one object, at most: what is noted of each takes memory, and a store may say any
  /// size.
  static constexpr std::uint64_t kMostParts = 1'000'000;
};

}  // namespace varo::detail
