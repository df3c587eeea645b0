#include "Binary/Binary/DownloadTask/CipherTask.h"

#include "Binary/Binary/DownloadTask/DownloadLogTexts.h"
#include "Binary/Binary/SourceNames.h"

#include <cstdint>
#include <string_view>

namespace varo::binary {
namespace {

namespace texts = log_texts::cipher_task;

}  // namespace

void CipherTask::execute() {
  logger().logDebug(log_texts::kInside, name());
  const TaskState from = state();
  setState(TaskState::Ended);
  task(shared_from_this(), from, TaskState::Ended, outputContext());
}

void CipherTask::task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                      const Dictionary& /*context*/) {
  logger().logTrace(texts::kInListener);
  logger().logDebug(log_texts::kStateChange, task, static_cast<std::uint32_t>(from),
                    static_cast<std::uint32_t>(to));
}

}  // namespace varo::binary
