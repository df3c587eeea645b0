#pragma once

/// Locks of files that belong to one descriptor: against other processes and against every other
/// descriptor of this one. FileLockFlock.cpp has them from the system; FileLockPosix.cpp makes them
/// of POSIX's, which belong to the process. CMake takes one of the two. Thread-safe.
namespace varo::platform::system {

/// Locks the whole file, which has to be open for writing, until `unlockFile` or `closeFile`. Never
/// waits. Returns
/// 0 or the number of the error: EWOULDBLOCK where another descriptor or process has the lock.
[[nodiscard]] int lockFile(int descriptor) noexcept;

/// Gives the lock of the descriptor up, if it has it.
void unlockFile(int descriptor) noexcept;

/// Closes a descriptor, and with it its lock. Every descriptor of a file that may be locked has to
/// be closed with this, not by the system alone.
void closeFile(int descriptor) noexcept;

}  // namespace varo::platform::system
