#pragma once

#include <cstdint>

namespace varo::platform {

/// A source of random numbers, so that tests can script them. Thread-safe.
class Random {
 public:
  virtual ~Random() = default;

  /// A number of [least, greatest], each as likely as the others. Precondition: not an empty range.
  [[nodiscard]] virtual std::int64_t integer(std::int64_t least, std::int64_t greatest) = 0;

  /// The system's generator, which no one can predict.
  [[nodiscard]] static Random& system() noexcept;
};

}  // namespace varo::platform
