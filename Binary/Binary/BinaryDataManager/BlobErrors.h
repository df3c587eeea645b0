#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

/// An error of an operation on blobs, whose user information is {"message": `message`} and, where
/// there is one, its cause under `platform::kUnderlyingError`.
[[nodiscard]] inline platform::ErrorPtr blobError(std::string_view domain, std::int32_t code,
                                                  std::string_view message,
                                                  const platform::ErrorPtr& cause = nullptr) {
  platform::Dictionary userInfo{{std::string(platform::kErrorMessageKey), message}};
  if (cause != nullptr) userInfo.set(std::string(platform::kUnderlyingError), cause);
  return std::make_shared<const platform::Error>(std::string(domain), code, std::move(userInfo));
}

/// The same in the domain of downloads.
[[nodiscard]] inline platform::ErrorPtr downloadError(std::int32_t code, std::string_view message) {
  return blobError(kDownloadTaskErrorDomain, code, message);
}

/// The error of a download whose task has failed with this error context: the context is its user
/// information, with the first of its errors under `platform::kUnderlyingError` too.
[[nodiscard]] inline platform::ErrorPtr downloadFailure(platform::Dictionary errorContext) {
  const platform::Value& errors = errorContext[platform::kTaskErrors];
  if (const platform::Array* all = errors.array(); all != nullptr && !all->empty()) {
    const platform::Value first = (*all)[0];
    errorContext.set(std::string(platform::kUnderlyingError), first);
  }
  return std::make_shared<const platform::Error>(std::string(kDownloadTaskError),
                                                 kCodeDownloadTaskFailed, std::move(errorContext));
}

/// The same of one in which something has thrown.
[[nodiscard]] inline platform::ErrorPtr downloadThrew(std::string_view what) {
  return downloadFailure({{std::string(platform::kErrorMessageKey), what}});
}

/// The error of a download that was stopped.
[[nodiscard]] inline platform::ErrorPtr downloadStopped() {
  return downloadError(kCodeInvalidStateForBinaryOperation, kDownloadStopped);
}

}  // namespace varo::binary
