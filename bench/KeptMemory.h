#pragma once

#include <malloc.h>

namespace varo::bench {

/// libcurl allocates its buffers anew for each request. Left alone, the C library would give their
/// pages back to the system and fetch them again every time, which doubles the CPU time of a
/// transfer in chunks.
inline void keepFreedMemory() {
  constexpr int kKeptMemory = 8 * 1024 * 1024;
  mallopt(M_MMAP_THRESHOLD, kKeptMemory);
  mallopt(M_TRIM_THRESHOLD, kKeptMemory);
}

}  // namespace varo::bench
