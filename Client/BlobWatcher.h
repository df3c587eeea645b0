#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/WorkQueue.h"
#include "varo/blobs.h"

#include <functional>
#include <memory>
#include <optional>
#include <thread>

namespace varo::detail {

class BlobDatabase;

/// What is behind a `BlobWatch`: calls its callback with one state after the other. Waiting states
/// are as many as changes that it was not told of yet. Thread-safe.
class BlobWatcher final : public std::enable_shared_from_this<BlobWatcher> {
 public:
  /// `database` is kept: what is watched goes on when its last store is gone.
  BlobWatcher(std::function<void(const BlobState&)> callback,
              std::shared_ptr<BlobDatabase> database);

  void tell(BlobState state) noexcept;
  /// Waits for a call that runs, but for the one that this is called from; none begins any more.
  void close() noexcept;

 private:
  void call(const BlobState& state) noexcept;

  const std::function<void(const BlobState&)> callback_;
  const std::shared_ptr<BlobDatabase> database_;
  platform::SerialQueue calls_;

  platform::Mutex mutex_;
  platform::ConditionVariable changed_;
  bool closed_ VARO_GUARDED_BY(mutex_) = false;
  /// The thread that a call runs on.
  std::optional<std::thread::id> calling_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
