#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>

/// What some systems can do with files and POSIX.1-2008 cannot, each call alone. Where a system, or
/// a build with `VARO_PORTABLE_ONLY`, lacks it, the call fails with ENOTSUP or does what POSIX
/// offers; callers go another way then, as they have to on a file system that lacks it.
/// Thread-safe.
namespace varo::platform::system {

/// Opens a new file in `directory` that has no name; mode 0600 less the umask, closed on exec.
/// Returns -1 with `errno` where there is none.
[[nodiscard]] int openNameless(const std::string& directory) noexcept;
/// Gives a file of `openNameless` the name `path`, only if the name is free. False where it failed.
[[nodiscard]] bool giveName(int descriptor, const std::string& path);

/// Has the system copy bytes between two files; returns how many, 0 at the end of the source, -1
/// with `errno` where it cannot.
[[nodiscard]] ssize_t copyRange(int source, off_t sourceOffset, int target, off_t targetOffset,
                                std::size_t length) noexcept;

/// Waits until all of a file, or of a directory, is on the disk. Returns 0, or -1 with `errno`.
[[nodiscard]] int flush(int descriptor) noexcept;
/// The same without what nobody needs to read the bytes, such as the file's times, where the system
/// can leave that for later.
[[nodiscard]] int flushData(int descriptor) noexcept;
/// Has the system begin to bring a region to the disk; nothing where it cannot.
void startWriteback(int descriptor, off_t offset, off_t length) noexcept;

/// A path that leads to an open file of this process, also where the file has no name any more.
/// None where the system has no such paths.
[[nodiscard]] std::optional<std::string> pathOfOpen(int descriptor);

}  // namespace varo::platform::system
