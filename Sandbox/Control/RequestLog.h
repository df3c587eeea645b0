#pragma once

#include "Sandbox/Control/Traffic.h"

#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace varo::sandbox {

struct HttpRequest;

/// The last few hundred requests and counters for each listener. Thread-safe.
class RequestLog {
 public:
  void record(std::string_view listener, const HttpRequest& request, std::uint64_t bodyBytes,
              int status);
  void clear();

  [[nodiscard]] std::vector<LoggedRequest> requests() const;
  [[nodiscard]] ListenerStats stats(std::string_view listener) const;

 private:
  mutable std::mutex mutex_;
  // Guarded by mutex_.
  std::deque<LoggedRequest> requests_;
  std::map<std::string, ListenerStats, std::less<>> stats_;
};

}  // namespace varo::sandbox
