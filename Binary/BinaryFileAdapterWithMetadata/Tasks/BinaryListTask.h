#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"

namespace varo::binary {

/// Fetches the metadata records of files with one GET, filtered by a "$filter" expression.
///
/// Input: "url", "callback", and, all optional, "filter", "headers", "options" and
/// "queryParamsForDownload". Output: the response's entries ("records" among them),
/// "requestContext" (the filter, if any) and "queryParamsForDownload".
///
/// A failure is reported to the callback as well, with one exception: whoever started a download
/// reports the failure of its look-up under `TransferPolicy::kSafe` and after a cancellation.
class BinaryListTask final : public BinaryBaseTask {
 public:
  /// True: the output is the caller's result and goes to the success block. False: it is left, with
  /// "options", for the task that comes next. `error` is the base's: logged where it is set.
  explicit BinaryListTask(bool invokeCallbackOnSuccess, platform::ErrorPtr error = nullptr);

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  void unpackInputcontext();
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);

  const bool _invokeCallbackOnSuccess;
  platform::Dictionary _queryParams;
};

}  // namespace varo::binary
