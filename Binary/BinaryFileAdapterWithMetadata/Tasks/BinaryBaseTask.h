#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/TaskEngine/VSTask.h"

#include <initializer_list>
#include <memory>
#include <optional>
#include <string>

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

  /// Tells the caller of a failure.
  void reportFailure(const platform::ErrorPtr& error);
  /// Ends the task with `error`, then tells the caller.
  void fail(const platform::ErrorPtr& error);

  /// Adds the entries of an answer to the output that becomes another task's input, without those
  /// under `callersOwn`: a server must not say whom to call back, or which local file to send it.
  void addResponseForNextTask(platform::Dictionary response,
                              std::initializer_list<const char*> callersOwn);

  /// Of the steps of an upload.
  static constexpr std::initializer_list<const char*> kCallersOwnEntries = {
      keys::kCallback, keys::kOptions, keys::kFile, keys::kUploadParams, kOperationSettings};

  /// The dictionary that `value` is, or none.
  [[nodiscard]] static std::optional<platform::Dictionary> optionalDictionary(
      const platform::Value& value);

  // Owned by the run of the task.
  std::optional<std::string> url_;
  std::optional<std::string> filters_;
  std::shared_ptr<BinaryCallback> binaryCallback_;
  std::optional<platform::Dictionary> options_ = platform::Dictionary{};
  platform::Dictionary headers_;
};

}  // namespace varo::binary
