#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Faults/Fault.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/StopSignal.h"

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varo::sandbox {

/// A rule that hits a request.
struct FaultHit {
  FaultAction action;
  /// Raised when the rules are removed.
  std::shared_ptr<StopSignal> removed;
};

/// Holds the fault rules and decides which one hits a request: the first in the order of adding
/// that matches, has skipped enough and is not used up. Thread-safe.
class FaultInjector {
 public:
  void add(FaultRule rule);
  /// Requests that are held go on.
  void clear();
  /// The same without removing a rule, for a server that stops: after its signal was raised.
  void release();
  [[nodiscard]] std::size_t size() const;

  /// Counts the request on every rule that it matches.
  [[nodiscard]] std::optional<FaultHit> hit(std::string_view listener, const HttpRequest& request);

  /// Waits for `duration` or until the server stops; negative: or until the rules are removed.
  void wait(const FaultHit& hit, std::chrono::milliseconds duration, StopSignal& stopSignal);
  /// Requests that are held at this moment.
  [[nodiscard]] std::size_t held() const { return held_; }

 private:
  struct Entry {
    FaultRule rule;
    /// Requests that matched, by the hash of their target; all under one key unless the rule counts
    /// targets apart.
    std::unordered_map<std::size_t, std::uint64_t> seen;
  };
  mutable platform::Mutex mutex_;
  std::vector<Entry> entries_ VARO_GUARDED_BY(mutex_);
  /// A new one for each time that the rules are removed.
  std::shared_ptr<StopSignal> removed_ VARO_GUARDED_BY(mutex_) = std::make_shared<StopSignal>();
  std::atomic<std::size_t> held_ = 0;
};

/// The response that replaces the service's own, if the action has one.
[[nodiscard]] std::optional<HttpResponse> replacementFor(const FaultAction& action);

/// Adds what the action does to the headers and the delivery of a response.
void spoil(HttpResponse& response, const FaultAction& action);

}  // namespace varo::sandbox
