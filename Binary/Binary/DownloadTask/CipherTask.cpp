#include "Binary/Binary/DownloadTask/CipherTask.h"

#include "Binary/Binary/SourceNames.h"

#include <cstdint>
#include <string_view>

namespace varo::binary {
namespace {

constexpr std::string_view kInside = "Inside %@  ";
constexpr std::string_view kInListener = "Inside the Cipher listner!   ";
constexpr std::string_view kStateChange = "Task:%@ fromState:%lu toState:%lu  ";

}  // namespace

void CipherTask::execute() {
  logger().logDebug(kInside, name());
  const TaskState from = state();
  setState(TaskState::Ended);
  task(shared_from_this(), from, TaskState::Ended, outputContext());
}

void CipherTask::task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                      const Dictionary& /*context*/) {
  logger().logTrace(kInListener);
  logger().logDebug(kStateChange, task, static_cast<std::uint32_t>(from),
                    static_cast<std::uint32_t>(to));
}

}  // namespace varo::binary
