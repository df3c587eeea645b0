#include "Client/BlobWatcher.h"

#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/ThreadPool.h"

#include <utility>

namespace varo {

BlobWatch::BlobWatch(std::shared_ptr<detail::BlobWatcher> watcher) noexcept
    : watcher_(std::move(watcher)) {}

BlobWatch::BlobWatch(BlobWatch&& other) noexcept = default;

BlobWatch& BlobWatch::operator=(BlobWatch&& other) noexcept {
  // The one that goes closes with its destructor.
  const BlobWatch former(std::exchange(watcher_, std::move(other.watcher_)));
  return *this;
}

BlobWatch::~BlobWatch() {
  if (watcher_ != nullptr) watcher_->close();
}

namespace detail {

using platform::MutexLock;

BlobWatcher::BlobWatcher(std::function<void(const BlobState&)> callback,
                         std::shared_ptr<BlobDatabase> database)
    : callback_(std::move(callback)), database_(std::move(database)), calls_("blob watch") {}

void BlobWatcher::tell(BlobState state) noexcept {
  calls_.async([self = shared_from_this(), state = std::move(state)] { self->call(state); });
}

void BlobWatcher::call(const BlobState& state) noexcept {
  {
    const MutexLock lock(mutex_);
    if (closed_) return;
    calling_ = std::this_thread::get_id();
  }
  {
    // An application's code works on its own account, not on that of a fetch.
    const platform::JobContext::Scope none(nullptr);
    platform::ThreadPool::runHere([&] { callback_(state); });
  }
  const MutexLock lock(mutex_);
  calling_.reset();
  changed_.notifyAll();
}

void BlobWatcher::close() noexcept {
  const MutexLock lock(mutex_);
  closed_ = true;
  while (calling_ && *calling_ != std::this_thread::get_id()) changed_.wait(mutex_);
}

}  // namespace detail

}  // namespace varo
