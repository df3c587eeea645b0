#pragma once

#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Mutex.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <stop_token>

namespace varo::binary {

/// Lets so many uploads run at once. The others wait, in the order in which they came, and have
/// neither a task nor an open file until their turn.
///
/// Thread-safe. Nothing is called under its lock. It outlives all its uploads.
class UploadAdmission {
 public:
  /// Held by whatever belongs to an upload that runs. The next one begins when the last copy goes.
  using Place = std::shared_ptr<void>;
  using Start = std::function<void(Place)>;

  explicit UploadAdmission(std::size_t places) : free_(places) {}

  /// Calls `start` once, in the job context of this call: here if there is a place, otherwise on a
  /// thread of the runtime as soon as there is one. One that is cancelled while it waits, or still
  /// waits at the shutdown, begins at once and without a place, to end in the usual way. `start`
  /// must not throw, except where it is called here.
  void enter(Start start, const std::stop_token& cancelled);

  /// Has all that wait begin, and from now on everyone: nothing runs for long any more.
  void shutDown();

 private:
  class Upload;
  using UploadPtr = std::shared_ptr<Upload>;

  /// The one that has waited longest, which has a place from now on; null: it has to wait.
  [[nodiscard]] UploadPtr takeNext() VARO_REQUIRES(mutex_);
  /// It does not wait for its turn.
  void leave(std::uint64_t ticket);
  void placeIsFree() noexcept;

  platform::Mutex mutex_;
  std::size_t free_ VARO_GUARDED_BY(mutex_);
  /// By their numbers, which grow.
  std::map<std::uint64_t, UploadPtr> waiting_ VARO_GUARDED_BY(mutex_);
  std::uint64_t lastTicket_ VARO_GUARDED_BY(mutex_) = 0;
  bool isShutDown_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::binary
