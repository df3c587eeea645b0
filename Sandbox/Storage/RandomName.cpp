#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

#include <random>

namespace varo::sandbox {

std::string randomName() {
  std::random_device device;
  return fmt::format("{:08x}{:08x}{:08x}{:08x}", device(), device(), device(), device());
}

}  // namespace varo::sandbox
