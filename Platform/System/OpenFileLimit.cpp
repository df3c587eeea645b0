#include "Platform/System/OpenFileLimit.h"

#include <algorithm>
#include <limits>
#include <sys/resource.h>

namespace varo::platform::system {

std::size_t openFileLimit() noexcept {
  rlimit limit{};
  constexpr auto kUnknown = std::numeric_limits<std::size_t>::max();
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return kUnknown;
  return static_cast<std::size_t>(limit.rlim_cur);
}

std::size_t shareOfOpenFiles(std::size_t most) noexcept {
  constexpr std::size_t kLeast = 8;
  return std::max(std::min(openFileLimit() / 4, most), kLeast);
}

}  // namespace varo::platform::system
