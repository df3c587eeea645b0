#include "Platform/System/FileLock.h"

#include <cerrno>
#include <sys/file.h>
#include <unistd.h>

namespace varo::platform::system {

int lockFile(int descriptor) noexcept {
  while (::flock(descriptor, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

void unlockFile(int descriptor) noexcept { (void)::flock(descriptor, LOCK_UN); }

void closeFile(int descriptor) noexcept { ::close(descriptor); }

}  // namespace varo::platform::system
