#pragma once

#include "Platform/Foundation/Object.h"

#include <stop_token>
#include <string>
#include <sys/single_threaded.h>
#include <system_error>
#include <thread>

namespace varo::platform {

/// Lets a caller give up operations that it has started: it goes into their options, and `cancel`
/// ends them all. One that has ended already stays as it is. Thread-safe.
class Cancellation final : public Object {
 public:
  /// Requests the end; the operations report it on their own threads. Later calls do nothing.
  void cancel() {
    leaveSingleThread();
    source_.request_stop();
  }
  [[nodiscard]] bool isCancelled() const noexcept { return source_.stop_requested(); }
  /// For what waits: `std::stop_callback` is called on the thread that cancels.
  [[nodiscard]] std::stop_token token() const noexcept { return source_.get_token(); }

  [[nodiscard]] std::string description() const override { return "Cancellation"; }

 private:
  /// libstdc++ 12 does not say that a `std::stop_callback` has run where the process had one thread
  /// at that time, and a thread that is started later and removes the callback waits for that for
  /// ever. Once a thread has been started, if only for a moment, the process counts as threaded.
  static void leaveSingleThread() noexcept {
    if (!__libc_single_threaded) return;
    try {
      std::thread([] {}).join();
    } catch (const std::system_error&) {
      // Without threads nothing of an operation runs.
    }
  }

  std::stop_source source_;
};

}  // namespace varo::platform
