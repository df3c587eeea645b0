#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

#include <random>

namespace varo::sandbox {

std::string randomName() {
  // From the system, and with no state between calls: any thread may
  // ask, and a restart repeats none.
  std::random_device device;
  return fmt::format("{:08x}{:08x}{:08x}{:08x}", device(), device(), device(), device());
}

}  // namespace varo::sandbox
