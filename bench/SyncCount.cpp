#include "bench/SyncCount.h"

#include <atomic>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<std::int64_t> count = 0;

int counted(std::int64_t call, int descriptor) {
  ++count;
  return static_cast<int>(::syscall(call, descriptor));
}

}  // namespace

std::int64_t varo::bench::syncCount() noexcept { return count; }

// The program's own definitions go before the C library's, for shared libraries too.
int fdatasync(int descriptor) { return counted(SYS_fdatasync, descriptor); }
int fsync(int descriptor) { return counted(SYS_fsync, descriptor); }
