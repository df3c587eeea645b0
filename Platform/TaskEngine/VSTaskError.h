#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <memory>
#include <string>

namespace varo::platform {

/// The error that a task raises: an `Error` that knows its task.
class VSTaskError final : public Error {
 public:
  VSTaskError(std::int64_t taskID, std::string domain, std::int64_t code, Dictionary userInfo)
      : VSTaskError(taskID, {}, std::move(domain), code, std::move(userInfo)) {}
  VSTaskError(std::int64_t taskID, std::string name, std::string domain, std::int64_t code,
              Dictionary userInfo)
      : Error(std::move(domain), code, std::move(userInfo)),
        taskID_(taskID),
        name_(std::move(name)) {}

  /// The `VSTask::ID` of the task that raised it.
  [[nodiscard]] std::int64_t taskID() const noexcept { return taskID_; }
  /// Empty where the task has none.
  [[nodiscard]] const std::string& name() const noexcept { return name_; }

 private:
  const std::int64_t taskID_;
  const std::string name_;
};

}  // namespace varo::platform
