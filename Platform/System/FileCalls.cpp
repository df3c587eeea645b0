#include "Platform/System/FileCalls.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// CMake defines each of these macros where the system has the call: see cmake/VaroSystem.cmake.

namespace varo::platform::system {
namespace {

int uninterrupted(int (*call)(int), int descriptor) noexcept {
  int result = 0;
  do {
    result = call(descriptor);
  } while (result != 0 && errno == EINTR);
  return result;
}

}  // namespace

int openNameless([[maybe_unused]] const std::string& directory) noexcept {
#ifdef VARO_HAS_NAMELESS_FILES
  return ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
#else
  errno = ENOTSUP;
  return -1;
#endif
}

bool giveName(int descriptor, const std::string& path) {
  // linkat's AT_EMPTY_PATH would need a privilege; the link in /proc does the same without one.
  const auto source = pathOfOpen(descriptor);
  return source &&
         ::linkat(AT_FDCWD, source->c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

ssize_t copyRange([[maybe_unused]] int source, [[maybe_unused]] off_t sourceOffset,
                  [[maybe_unused]] int target, [[maybe_unused]] off_t targetOffset,
                  [[maybe_unused]] std::size_t length) noexcept {
#ifdef VARO_HAS_COPY_FILE_RANGE
  return ::copy_file_range(source, &sourceOffset, target, &targetOffset, length, 0);
#else
  errno = ENOTSUP;
  return -1;
#endif
}

int flush(int descriptor) noexcept { return uninterrupted(::fsync, descriptor); }

int flushData(int descriptor) noexcept {
#ifdef VARO_HAS_FDATASYNC
  return uninterrupted(::fdatasync, descriptor);
#else
  return flush(descriptor);
#endif
}

void startWriteback([[maybe_unused]] int descriptor, [[maybe_unused]] off_t offset,
                    [[maybe_unused]] off_t length) noexcept {
#ifdef VARO_HAS_SYNC_FILE_RANGE
  (void)::sync_file_range(descriptor, offset, length, SYNC_FILE_RANGE_WRITE);
#endif
}

std::optional<std::string> pathOfOpen([[maybe_unused]] int descriptor) {
#ifdef VARO_HAS_PROC_DESCRIPTORS
  return "/proc/self/fd/" + std::to_string(descriptor);
#else
  return std::nullopt;
#endif
}

}  // namespace varo::platform::system
