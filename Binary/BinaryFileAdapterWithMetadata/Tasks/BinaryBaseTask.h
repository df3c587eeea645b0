#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Common/NetworkError.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// Base of the file adapter's tasks: what a request to the object service needs, and how a failure
/// is reported.
///
/// The fields belong to the run of the task, that is to `execute` and the completion that follows
/// it, which never overlap. The getters are for before and after it.
class BinaryBaseTask : public platform::VSTask {
 public:
  /// `error` is taken for uniformity with the initialisers of other tasks; it is never set.
  explicit BinaryBaseTask(platform::ErrorPtr* error = nullptr);

  /// The base URL as the caller gave it, or the request's URL once the task has unpacked its input.
  [[nodiscard]] const std::optional<std::string>& url() const noexcept { return url_; }
  [[nodiscard]] const std::optional<std::string>& filters() const noexcept { return filters_; }
  /// Where the task reports. Null for nowhere.
  [[nodiscard]] const std::shared_ptr<BinaryCallback>& binaryCallback() const noexcept {
    return binaryCallback_;
  }
  /// The caller's options; none once a task has been given none.
  [[nodiscard]] const std::optional<platform::Dictionary>& options() const noexcept {
    return options_;
  }
  [[nodiscard]] const platform::Dictionary& headers() const noexcept { return headers_; }

 protected:
  /// Reads what every request to "/objects/File" reads: URL, JSON content type (which a header of
  /// the caller replaces), headers, options and callback.
  void unpackFileRequest(const platform::Dictionary& input);

  /// The input, with the settings of the operation taken from it: what `execute` starts with.
  [[nodiscard]] platform::Dictionary takeInput();
  [[nodiscard]] bool isSafe() const noexcept { return settings_->isSafe(); }
  /// The domain of what ends the operation early, other than its requests.
  [[nodiscard]] virtual std::string_view errorDomain() const noexcept;

  /// The options of a request whose successful response has at most this many bytes.
  [[nodiscard]] platform::Dictionary requestOptions(std::uint64_t answerLimit) const;
  /// A completion that calls `process` once with the response or the error. The error is
  /// `kCodeOperationCancelled` if the request failed after the operation was cancelled. What
  /// `process` throws ends the task as Errored.
  template <typename Task>
  [[nodiscard]] TaskCallback completion(void (Task::*process)(const platform::Dictionary&,
                                                              const platform::NetworkErrorPtr&)) {
    return [task = self<Task>(), process](const platform::Dictionary& response,
                                          const platform::NetworkErrorPtr& error) {
      task->guarded([&] { (task.get()->*process)(response, task->causeOf(error)); });
    };
  }

  /// The headers for a request to an outside store at `url_`. The caller gave this task's headers
  /// for the server of `serviceUrl`, so the token is left out; under `TransferPolicy::kSafe` all
  /// other credentials too, unless the store is at that server.
  [[nodiscard]] platform::Dictionary headersForStore(std::string_view serviceUrl) const;

  /// Tells the caller of a failure.
  void reportFailure(const platform::ErrorPtr& error);
  /// Ends the task with `error`, then tells the caller. Of a cancellation it tells only if no end
  /// has been reported yet.
  void fail(const platform::ErrorPtr& error);
  /// Ends the task as Ended, then tells the caller, who gets the whole output.
  void succeed();

  /// Logs at fatal level, where there is an error.
  static void logFailedInit(std::string_view message, const platform::ErrorPtr& error);

  /// Adds the entries of a response to the output, which becomes another task's input, except those
  /// named by `callersOwn`: a server must not say whom to call back, or which local file to send.
  void addResponseForNextTask(platform::Dictionary response,
                              std::initializer_list<const char*> callersOwn);

  /// Of the steps of an upload.
  static constexpr std::initializer_list<const char*> kCallersOwnEntries = {
      keys::kCallback, keys::kOptions, keys::kFile, keys::kUploadParams, kOperationSettings};

  /// The dictionary that `value` is, or none.
  [[nodiscard]] static std::optional<platform::Dictionary> optionalDictionary(
      const platform::Value& value);

  // Owned by the run of the task.
  /// Set by `takeInput`, not null from then on.
  OperationSettings::Ptr settings_;
  std::optional<std::string> url_;
  std::optional<std::string> filters_;
  std::shared_ptr<BinaryCallback> binaryCallback_;
  std::optional<platform::Dictionary> options_ = platform::Dictionary{};
  platform::Dictionary headers_;

 private:
  [[nodiscard]] platform::NetworkErrorPtr causeOf(const platform::NetworkErrorPtr& error) const;
};

}  // namespace varo::binary
