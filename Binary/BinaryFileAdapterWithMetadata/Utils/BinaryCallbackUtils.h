#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <memory>

namespace varo::binary {

/// Makes callback holders, and reports through them in the shapes that the application receives.
/// A report to no holder (null) does nothing. Stateless, thread-safe.
class BinaryCallbackUtils {
 public:
  BinaryCallbackUtils() = delete;

  /// A holder of the three blocks. A block that is not given is replaced by one that only logs.
  [[nodiscard]] static std::shared_ptr<BinaryCallback> getLocalBinaryCallbackWithOnSuccess(
      BinaryBlock onSuccess, BinaryBlock onFailure, BinaryBlock onProgress);

  /// Hands `withResult` to the success block.
  static void executeSuccessCallback(const std::shared_ptr<BinaryCallback>& callback,
                                     const platform::Value& withResult);

  /// Hands {"code": decimal text, "localizedDescription", "domain", "userInfo"} to the failure
  /// block; what the error does not have is left out.
  static void executeFailureCallback(const std::shared_ptr<BinaryCallback>& callback,
                                     const platform::ErrorPtr& withError);

  /// Hands {"state": number, "progressData"} to the progress block and waits for it; missing data
  /// is left out.
  static void executeProgressCallback(const std::shared_ptr<BinaryCallback>& callback,
                                      OperationState operationState,
                                      const platform::Value& progressData);
};

}  // namespace varo::binary
