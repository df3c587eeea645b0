#pragma once

#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>

namespace varo::binary {

/// Calls the application's blocks with the outcome of a download's operation. Every block is taken
/// from its task, so that it is called at most once. What it throws is logged. Never with a lock
/// held.
class DownloadAnswers {
 public:
  DownloadAnswers() = delete;

  /// Calls `block`, which may be empty.
  static void answer(const DownloadBlock& block, const std::optional<std::string>& blobId,
                     const platform::ErrorPtr& error,
                     const std::optional<platform::Dictionary>& result);

  /// Answers the start and then the resume of the task, where they wait.
  static void answerEnd(DownloadTask& task, const platform::ErrorPtr& error,
                        const std::optional<platform::Dictionary>& result);
  /// Answers its pause.
  static void answerPause(DownloadTask& task, const platform::ErrorPtr& error,
                          const std::optional<platform::Dictionary>& result);
  /// Answers its pause where the task has come to its end before. Under `TransferPolicy::kSafe`
  /// only.
  static void answerPauseAfterEnd(DownloadTask& task);
  /// Answers the start of a task that will not be, since the runtime was shut down.
  static void answerShutDown(DownloadTask& task);
  /// Answers all that wait for a task that was cleared. Under `TransferPolicy::kSafe` only.
  static void answerCleared(DownloadTask& task);
};

}  // namespace varo::binary
