#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Foundation/WorkQueue.h"

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace varo::binary {

/// A block of the application: takes one value, which may be missing. An empty one is none.
using BinaryBlock = std::function<void(const platform::Value&)>;

/// Holds an operation's three blocks and the two queues on which they run.
///
/// - Success and failure blocks run on threads of the runtime's pool, in no particular order.
/// - Progress blocks run one at a time, in the order reported, on the reporting thread. That thread
///   waits for the block, so a progress block must not wait for its own transfer.
/// - No lock is held while a block runs, so it may start further operations.
/// - What a block throws is logged and goes no further.
///
/// An operation ends once. Whoever is about to report its end calls `noteEnd` first, so that nobody
/// else reports it as well; the reporting functions do that themselves.
///
/// Call the setters before the holder is shared; everything else is thread-safe. The blocks are
/// released with the holder, which lives as long as a task of its operation.
class BinaryCallback final : public platform::Object {
 public:
  /// A holder without blocks; a report to a block that is not there is logged and goes no further.
  BinaryCallback();

  /// Each replaces the block that was set before; an empty block removes it.
  void setSuccessCallback(BinaryBlock successCallback);
  void setFailureCallback(BinaryBlock failureCallback);
  void setProgressCallback(BinaryBlock progressCallback);

  /// Called once, with the first `noteEnd`, on its thread and with no lock held.
  void setWhenEnded(std::function<void()> whenEnded);

  /// Notes that the operation's end is about to be reported. True for the first caller only.
  bool noteEnd();

  /// Runs the block of this type; nothing for a number that is no type.
  void executeWithCallback(CallbackType callbackType, const platform::Value& result);
  /// Submits the block and returns at once; if there is no memory for that, the block runs here. A
  /// missing result is passed on after a warning.
  void executeSuccessWithResult(const platform::Value& result);
  /// As for success.
  void executeFailureWithError(const platform::Value& error);
  /// Runs the block and returns after it. A missing status is not passed on.
  void executeProgressWithCurrentStatus(const platform::Value& status);

  [[nodiscard]] std::string description() const override;

 private:
  /// Shared, so that every report runs the one block that was set, not a copy with a state of its
  /// own.
  struct Blocks {
    BinaryBlock success;
    BinaryBlock failure;
    BinaryBlock progress;
  };

  /// `block` is one of `blocks_`.
  void submit(const BinaryBlock& block, const platform::Value& value);
  static void run(const BinaryBlock& block, const platform::Value& value);

  // Constant once the holder is shared.
  const std::shared_ptr<Blocks> blocks_;
  std::function<void()> whenEnded_;
  std::atomic<bool> endNoted_{false};
  platform::ConcurrentQueue _binaryCallbackExecutionQueue;
  /// Made, under `hasProgressQueue_`, with the first report: an upload that waits has none to make.
  std::optional<platform::SerialQueue> _binaryProgressCallbackExecutionQueue;
  std::once_flag hasProgressQueue_;
};

}  // namespace varo::binary
