#include "Platform/System/RandomBytes.h"

#include <cstdlib>

namespace varo::platform::system {

void fillRandom(std::span<std::byte> bytes) noexcept {
  ::arc4random_buf(bytes.data(), bytes.size());
}

}  // namespace varo::platform::system
