#pragma once

#include "varo/outcome.h"
#include "varo/units.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace varo::detail {

/// How a run of bytes is cut into parts of one size, of which the last may be smaller.
struct PartPlan {
  std::uint64_t size = 0;
  std::uint64_t partSize = 1;

  /// At least 1, also of zero bytes.
  [[nodiscard]] std::size_t count() const noexcept {
    return size == 0 ? 1 : static_cast<std::size_t>((size - 1) / partSize + 1);
  }
  [[nodiscard]] std::uint64_t first(std::size_t index) const noexcept { return index * partSize; }
  [[nodiscard]] std::uint64_t length(std::size_t index) const noexcept {
    const std::uint64_t left = size - first(index);
    return left < partSize ? left : partSize;
  }

  /// For an upload of `size` bytes in parts: of `wished` bytes each, or of as many more as it takes
  /// for there to be 10,000 at most. `Kind::kInvalidArgument` for a wish that stores refuse, and
  /// for more bytes than they take.
  [[nodiscard]] static Outcome<PartPlan> ofUpload(std::uint64_t size, Bytes wished);
};

inline constexpr int kMostSideBySide = 64;

/// Parts or ranges of one object under way, at most: `Kind::kInvalidArgument`, which names the
/// option, for others than 1 to 64.
[[nodiscard]] Outcome<void> checkedSideBySide(int most, std::string_view option);

}  // namespace varo::detail
