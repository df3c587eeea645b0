#include "Platform/Foundation/BufferPool.h"

#include <utility>

namespace varo::platform {

std::shared_ptr<BufferPool> BufferPool::create(std::size_t size, std::size_t mostIdle) {
  return std::make_shared<BufferPool>(Badge{}, size, mostIdle);
}

BufferPool::BufferPool(Badge /*badge*/, std::size_t size, std::size_t mostIdle)
    : size_(size), mostIdle_(mostIdle) {
  const MutexLock lock(mutex_);
  idle_.reserve(mostIdle);
}

std::shared_ptr<std::string> BufferPool::lend() {
  struct Lent {
    std::shared_ptr<BufferPool> pool;
    std::string buffer;
    Lent(std::shared_ptr<BufferPool> from, std::string kept)
        : pool(std::move(from)), buffer(std::move(kept)) {}
    Lent(const Lent&) = delete;
    Lent& operator=(const Lent&) = delete;
    ~Lent() { pool->takeBack(std::move(buffer)); }
  };

  std::string buffer;
  {
    const MutexLock lock(mutex_);
    if (!idle_.empty()) {
      // The one that came back last: it is the likeliest to be in the processor's cache.
      buffer = std::move(idle_.back());
      idle_.pop_back();
    }
  }
  buffer.reserve(size_);
  const auto lent = std::make_shared<Lent>(shared_from_this(), std::move(buffer));
  return {lent, &lent->buffer};
}

void BufferPool::dropIdle() noexcept {
  const MutexLock lock(mutex_);
  idle_.clear();
}

void BufferPool::takeBack(std::string buffer) noexcept {
  buffer.clear();
  const MutexLock lock(mutex_);
  if (idle_.size() < mostIdle_) idle_.push_back(std::move(buffer));
}

}  // namespace varo::platform
