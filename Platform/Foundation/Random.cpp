#include "Platform/Foundation/Random.h"

#include "Platform/Foundation/NeverDestroyed.h"
#include "Platform/System/RandomBytes.h"

#include <cassert>
#include <limits>
#include <random>
#include <span>

namespace varo::platform {
namespace {

/// The system's generator as the standard's distributions take it.
struct SystemBits {
  using result_type = std::uint32_t;
  static constexpr result_type min() { return 0; }
  static constexpr result_type max() { return std::numeric_limits<result_type>::max(); }
  result_type operator()() const noexcept {
    result_type bits = 0;
    system::fillRandom(std::as_writable_bytes(std::span(&bits, 1)));
    return bits;
  }
};

class SystemRandom final : public Random {
 public:
  [[nodiscard]] std::int64_t integer(std::int64_t least, std::int64_t greatest) override {
    assert(least <= greatest);
    SystemBits bits;
    return std::uniform_int_distribution<std::int64_t>(least, greatest)(bits);
  }
};

}  // namespace

Random& Random::system() noexcept {
  static NeverDestroyed<SystemRandom> random;
  return random.get();
}

}  // namespace varo::platform
