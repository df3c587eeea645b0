#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Control/Traffic.h"

#include <deque>
#include <map>
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
  mutable platform::Mutex mutex_;
  std::deque<LoggedRequest> requests_ VARO_GUARDED_BY(mutex_);
  std::map<std::string, ListenerStats, std::less<>> stats_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::sandbox
