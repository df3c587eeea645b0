#include "Client/OrderedSink.h"

#include "Client/FileDestination.h"
#include "Client/ObjectRun.h"

#include <optional>
#include <utility>

namespace varo::detail {

using platform::Data;
using platform::MutexLock;

OrderedSink::OrderedSink(Sink sink, std::string about)
    : sink_(std::move(sink)), about_(std::move(about)) {}

Outcome<void> OrderedSink::take(std::size_t index, Data bytes, RunningBase& running,
                                const std::stop_token& stop) {
  {
    const MutexLock lock(mutex_);
    waiting_.emplace(index, std::move(bytes));
  }
  return handOver(running, stop);
}

Outcome<void> OrderedSink::handOver(RunningBase& running, const std::stop_token& stop) {
  Outcome<void> handed;
  for (bool isMine = false;; isMine = true) {
    std::optional<Data> bytes;
    {
      const MutexLock lock(mutex_);
      // The call that does it looks for more before it ends, under this lock.
      if (!isMine && isHanding_) return {};
      if (isMine && handed) waiting_.erase(next_++);
      const auto next = waiting_.find(next_);
      isHanding_ = handed && next != waiting_.end() && !stop.stop_requested();
      if (!isHanding_) return handed;
      bytes = next->second;
    }
    handed = handNext(*bytes, running);
  }
}

Outcome<void> OrderedSink::handNext(const Data& bytes, RunningBase& running) const {
  if (bytes.empty()) return {};
  std::optional<Outcome<void>> handed;
  const bool isCalled = running.move([&] { handed = handTo(sink_, bytes, about_); });
  if (!isCalled || !handed) return cancelledObject(about_);
  return *std::move(handed);
}

bool OrderedSink::isEmpty() const {
  const MutexLock lock(mutex_);
  return waiting_.empty();
}

}  // namespace varo::detail
