#include "Platform/System/SpawnDescriptors.h"

#include <algorithm>
#include <fcntl.h>
#include <unistd.h>

namespace varo::platform::system {

int closeFrom(::posix_spawn_file_actions_t& actions, int first) noexcept {
  // Some systems allow a thousand million, and nobody has that many.
  constexpr long kMost = 65'536;
  const long all = ::sysconf(_SC_OPEN_MAX);
  const int end = static_cast<int>(all > 0 ? std::min(all, kMost) : kMost);
  for (int descriptor = first; descriptor < end; ++descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFD);
    if (flags < 0 || (flags & FD_CLOEXEC) != 0) continue;
    const int error = ::posix_spawn_file_actions_addclose(&actions, descriptor);
    if (error != 0) return error;
  }
  return 0;
}

}  // namespace varo::platform::system
