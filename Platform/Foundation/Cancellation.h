#pragma once

#include "Platform/Foundation/Object.h"
#include "Platform/System/SingleThread.h"

#include <stop_token>
#include <string>

namespace varo::platform {

/// Lets a caller give up operations that it has started: it goes into their options, and `cancel`
/// ends them all. One that has ended already stays as it is. Thread-safe.
class Cancellation final : public Object {
 public:
  /// Requests the end; the operations report it on their own threads. Later calls do nothing.
  void cancel() {
    system::leaveSingleThread();
    source_.request_stop();
  }
  [[nodiscard]] bool isCancelled() const noexcept { return source_.stop_requested(); }
  /// For what waits: `std::stop_callback` is called on the thread that cancels.
  [[nodiscard]] std::stop_token token() const noexcept { return source_.get_token(); }

  [[nodiscard]] std::string description() const override { return "Cancellation"; }

 private:
  std::stop_source source_;
};

}  // namespace varo::platform
