#include "bench/SyncCount.h"

#include <atomic>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<std::int64_t> count = 0;

}  // namespace

std::int64_t varo::bench::syncCount() noexcept { return count; }

// The program's own definition goes before the C library's, for shared libraries too.
int fdatasync(int descriptor) {
  ++count;
  return static_cast<int>(::syscall(SYS_fdatasync, descriptor));
}
