#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace varo::platform {

/// The error of a failed request: an `Error` that knows where it arose.
class NetworkError final : public Error {
 public:
  NetworkError(std::string domain, std::int64_t code, Dictionary userInfo,
               std::vector<std::string> callStack)
      : Error(std::move(domain), code, std::move(userInfo)), callStack_(std::move(callStack)) {}

  /// Symbols of the frames that made the error, innermost first. May be empty.
  [[nodiscard]] const std::vector<std::string>& callStack() const noexcept { return callStack_; }

 private:
  const std::vector<std::string> callStack_;
};

using NetworkErrorPtr = std::shared_ptr<const NetworkError>;

/// Symbols of the calling thread's frames, innermost first, without this function's own. Costs some
/// microseconds a frame, at most 32 of them: for errors, not for every request. Without memory for
/// all of them, those that there was memory for.
[[nodiscard]] std::vector<std::string> currentCallStack() noexcept;

}  // namespace varo::platform
