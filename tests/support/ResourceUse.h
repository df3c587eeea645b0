#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <ostream>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace varo::test {

/// Resources of this process.
struct ResourceUse {
  std::size_t descriptors = countIn("/proc/self/fd");
  std::size_t threads = countIn("/proc/self/task");
  /// Bytes that are allocated; 0 where nobody counts them.
  std::size_t memory = allocated();

  static std::size_t countIn(const char* directory) {
    const std::filesystem::directory_iterator all(directory);
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }
  static std::size_t allocated() {
#ifdef __GLIBC__
    const struct mallinfo2 info = ::mallinfo2();  // of a sanitizer's allocator: nothing
    return info.uordblks + info.hblkhd;
#else
    return 0;
#endif
  }
  friend std::ostream& operator<<(std::ostream& out, const ResourceUse& use) {
    return out << use.descriptors << " descriptors, " << use.threads << " threads, "
               << use.memory / 1024 << " KiB";
  }
};

}  // namespace varo::test
