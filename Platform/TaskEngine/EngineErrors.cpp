#include "Platform/TaskEngine/EngineErrors.h"

#include "Platform/TaskEngine/VSTask.h"
#include "Platform/TaskEngine/VSTaskError.h"

#include <utility>

namespace varo::platform {
namespace {

ErrorPtr makeError(std::int64_t taskID, const std::string& name, EngineErrorCode code,
                   std::string message) {
  return std::make_shared<const VSTaskError>(
      taskID, name, std::string(kEngineErrorDomain), code,
      Dictionary{{std::string(kErrorMessageKey), std::move(message)}});
}

}  // namespace

ErrorPtr engineError(const VSTask& task, EngineErrorCode code, std::string message) {
  return makeError(task.ID(), task.name(), code, std::move(message));
}

const OutOfMemory& outOfMemory() {
  static const OutOfMemory& instance = *[] {
    ErrorPtr error = makeError(0, {}, kOutOfMemory, "There is not enough memory");
    const Array errors{error};
    return new OutOfMemory{
        std::move(error),
        errors,
        {{std::string(kTaskErrors), errors}},
        {{std::string(kTaskOutputContext), Dictionary()}, {std::string(kTaskErrors), errors}}};
  }();  // never destroyed: tasks may end until the very end
  return instance;
}

}  // namespace varo::platform
