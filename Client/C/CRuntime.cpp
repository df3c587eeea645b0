#include "Client/C/Guarded.h"
#include "varo/c/runtime.h"
#include "varo/runtime.h"

#include <algorithm>
#include <chrono>

const char* varo_version(void) { return varo::version().data(); }  // a literal, so it ends with NUL

int varo_shut_down(int64_t most_ms) {
  // A year is for ever, and more would overflow the clock.
  constexpr std::int64_t kMost = std::int64_t{365} * 24 * 3600 * 1000;
  const std::chrono::milliseconds most(std::clamp<std::int64_t>(most_ms, 0, kMost));
  bool allEnded = false;
  const varo_code code = varo::capi::guarded([&] {
    allEnded = varo::shutDown(most);
    return VARO_OK;
  });
  return code == VARO_OK && allEnded ? 1 : 0;
}
