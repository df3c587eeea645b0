#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"
#include "Platform/Foundation/Random.h"
#include "Platform/Foundation/Sleeper.h"

#include <memory>
#include <string>

namespace varo::binary {

class PollingTask;

/// Deletes the files that a "$filter" expression selects, with one DELETE. When the service only
/// accepts it for later (a response with "httpStatusCode" 202, as number or text, and "poll_api"),
/// a `PollingTask` waits for its end; this task stays Started meanwhile and needs no thread.
///
/// Input: "url", "callback", and optional "headers", "options" and "requestContext", the metadata
/// of the files to delete; without it the filter is empty. Output, which is the caller's result:
/// the entries of the responses and "requestContext", without those that are about the polling.
///
/// Failures, each also reported to the callback:
/// - the request's own error;
/// - `NetworkError`, domain "Network operation failed", code 6003, when the polling failed: its
///   errors, an array, are under `kTaskErrors` in the user information, the first one under
///   `kUnderlyingError`;
/// - the same error when an accepting response does not say where to poll: the readable text says
///   what is missing.
class BinaryDeleteTask final : public BinaryBaseTask {
 public:
  /// `random` and `sleeper` are for the waits between status requests and must outlive the task.
  /// `error` is the base's: logged where it is set.
  explicit BinaryDeleteTask(platform::Random& random = platform::Random::system(),
                            platform::Sleeper& sleeper = platform::Sleeper::shared(),
                            platform::ErrorPtr error = nullptr);

  void execute() override;

  /// Hears of the polling. Called by the engine.
  void task(const std::shared_ptr<VSTask>& task, platform::TaskState from, platform::TaskState to,
            const platform::Dictionary& context) override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;
  /// Nothing: the listener alone decides how this task ends.
  void subtaskFinished(const std::shared_ptr<VSTask>& subtask, platform::TaskState state) override;

 private:
  void setupSubTasksWithError(platform::ErrorPtr* error, platform::Random& random,
                              platform::Sleeper& sleeper);
  void unpackInputContext();
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);
  void poll(const platform::Dictionary& response);
  void pollingEnded(const VSTask& polling);
  void pollingFailed(const VSTask& polling, const platform::Dictionary& context);

  std::string _filter;
  platform::Dictionary _requestContext;
  platform::Dictionary _queryParams;
  /// Weak, since a running subtask holds its parent. While it rests, this task's list of subtasks
  /// holds it.
  std::weak_ptr<PollingTask> _pollingTask;
};

}  // namespace varo::binary
