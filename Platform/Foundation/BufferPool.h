#pragma once

#include "Platform/Foundation/Mutex.h"

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace varo::platform {

/// Lends buffers of one size, and keeps the memory of those that came back for the next who asks.
///
/// Memory that is new to a process costs a page fault for each 4 KiB, which is more than it costs
/// to receive the bytes that go there. The C library gives large blocks back to the system, so that
/// whoever allocates one for every response pays that each time.
///
/// Thread-safe. A buffer may outlive the pool's owner: its return keeps the pool alive.
class BufferPool : public std::enable_shared_from_this<BufferPool> {
 public:
  /// Buffers of `size` bytes, at most `mostIdle` of which are kept while nobody uses them.
  [[nodiscard]] static std::shared_ptr<BufferPool> create(std::size_t size, std::size_t mostIdle);

  /// An empty string with room for `size` bytes. The last copy of the pointer brings it back.
  [[nodiscard]] std::shared_ptr<std::string> lend();

  /// Gives the memory of those that nobody has back to the system.
  void dropIdle() noexcept;

  /// Bytes of one buffer.
  [[nodiscard]] std::size_t size() const noexcept { return size_; }

 private:
  struct Badge {};

 public:
  BufferPool(Badge badge, std::size_t size, std::size_t mostIdle);

 private:
  void takeBack(std::string buffer) noexcept;

  const std::size_t size_;
  const std::size_t mostIdle_;

  Mutex mutex_;
  /// Never grows beyond the room that it has from the start, so that a return needs no memory.
  std::vector<std::string> idle_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::platform
