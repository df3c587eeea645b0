#include "Platform/System/SingleThread.h"

#include <system_error>
#include <thread>

// With this header libstdc++ asks the C library whether there is one thread; else it never takes it
// so.
#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace varo::platform::system {

void leaveSingleThread() noexcept {
#if __has_include(<sys/single_threaded.h>)
  if (!__libc_single_threaded) return;
  try {
    // It is enough that a thread has run, if only for a moment.
    std::thread([] {}).join();
  } catch (const std::system_error&) {
    // Without threads nothing of an operation runs.
  }
#endif
}

}  // namespace varo::platform::system
