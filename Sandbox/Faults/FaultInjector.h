#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Faults/Fault.h"
#include "Sandbox/Http/HttpResponse.h"

#include <cstddef>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varo::sandbox {

/// Holds the fault rules and decides which one hits a request: the first in the order of adding
/// that matches, has skipped enough and is not used up. Thread-safe.
class FaultInjector {
 public:
  void add(FaultRule rule);
  void clear();
  [[nodiscard]] std::size_t size() const;

  /// Counts the request on every rule that it matches.
  [[nodiscard]] std::optional<FaultAction> hit(std::string_view listener,
                                               const HttpRequest& request);

 private:
  struct Entry {
    FaultRule rule;
    /// Requests that matched, by the hash of their target; all under one key unless the rule counts
    /// targets apart.
    std::unordered_map<std::size_t, std::uint64_t> seen;
  };
  mutable platform::Mutex mutex_;
  std::vector<Entry> entries_ VARO_GUARDED_BY(mutex_);
};

/// The response that replaces the service's own, if the action has one.
[[nodiscard]] std::optional<HttpResponse> replacementFor(const FaultAction& action);

/// Adds what the action does to the headers and the delivery of a response.
void spoil(HttpResponse& response, const FaultAction& action);

}  // namespace varo::sandbox
