#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace varo::platform {

class VSTask;

/// Domain of the errors that the engine raises in a task, and their codes.
inline constexpr std::string_view kEngineErrorDomain = "TaskEngine";
enum EngineErrorCode : std::int64_t {
  kStepThrew = 1,
  kEngineShutDown = 2,
  kInvalidDependency = 3,
  kSubtaskGone = 4,
  kOutOfMemory = 5,
};

/// An error of `task`, with `message` under `kErrorMessageKey`. Throws `std::bad_alloc`.
[[nodiscard]] ErrorPtr engineError(const VSTask& task, EngineErrorCode code, std::string message);

/// What a task has for an error when there is no memory for another one. Copying these needs none.
struct OutOfMemory {
  ErrorPtr error;
  /// The error alone; an error context and a notification's context with it.
  Array errors;
  Dictionary errorContext;
  Dictionary notification;
};

/// Made with the first call, which may throw `std::bad_alloc`.
[[nodiscard]] const OutOfMemory& outOfMemory();

}  // namespace varo::platform
