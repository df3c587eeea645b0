#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/RequestObserver.h"
#include "varo/events.h"
#include "varo/options.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

namespace varo::detail {

/// Who observes a client: functions of the application's, either may be empty.
struct Observers {
  std::function<void(const RequestEvent&)> onRequest;
  std::function<void(const OperationEvent&)> onOperation;
};

/// What an application gets to know of a request, but for the operation that it belongs to.
[[nodiscard]] RequestEvent eventOf(const platform::RequestReport& report);

/// Tells the observers of one operation, one event after the other: its requests in the order in
/// which they end, then the operation.
///
/// The event of the operation waits for the requests that are under way: a cancel may have ended it
/// before them. Whoever has an event while another thread tells one leaves it to that. Thread-safe;
/// no lock is held while an observer is called.
class OperationWatch final : public platform::RequestObserver {
 public:
  OperationWatch(std::shared_ptr<const Observers> observers, OperationKind kind);

  void requestBegins() noexcept override;
  void requestEnded(const platform::RequestReport& report) noexcept override;
  /// The operation has come to its end with `done` bytes; `failure` is none for a success. Only the
  /// first call counts.
  void end(std::optional<Kind> failure, std::uint64_t done) noexcept;

 private:
  void tellDue() noexcept;
  /// The next one to be told of, in either; false where there is none for this thread.
  [[nodiscard]] bool takeNext(std::optional<RequestEvent>& request,
                              std::optional<OperationEvent>& operation);

  const std::shared_ptr<const Observers> observers_;
  const std::chrono::steady_clock::time_point since_ = std::chrono::steady_clock::now();

  platform::Mutex mutex_;
  /// What is known of the operation so far.
  OperationEvent operation_ VARO_GUARDED_BY(mutex_);
  std::size_t underWay_ VARO_GUARDED_BY(mutex_) = 0;  // requests
  std::deque<RequestEvent> due_ VARO_GUARDED_BY(mutex_);
  bool hasEnded_ VARO_GUARDED_BY(mutex_) = false;
  bool isEndTold_ VARO_GUARDED_BY(mutex_) = false;
  bool isTelling_ VARO_GUARDED_BY(mutex_) = false;  // a thread is
};

}  // namespace varo::detail
