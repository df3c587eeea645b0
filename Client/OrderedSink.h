#pragma once

#include "Client/Running.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/outcome.h"
#include "varo/source.h"

#include <cstddef>
#include <map>
#include <stop_token>
#include <string>

namespace varo::detail {

/// Hands the parts of an object to the application's function in their order, in whatever order
/// they come. Those that come too early wait here, over a pause too. Thread-safe.
class OrderedSink {
 public:
  /// `about` names the transfer in failures.
  OrderedSink(Sink sink, std::string about);

  /// Takes a part, each once, and hands over those that are next, on this thread or on that of the
  /// call that does it already. It leaves the rest for the next call when `stop` says so.
  [[nodiscard]] Outcome<void> take(std::size_t index, platform::Data bytes, RunningBase& running,
                                   const std::stop_token& stop);
  /// Hands over those that are next, after a pause.
  [[nodiscard]] Outcome<void> handOver(RunningBase& running, const std::stop_token& stop);

  /// Whether all that were taken are handed over.
  [[nodiscard]] bool isEmpty() const;

 private:
  [[nodiscard]] Outcome<void> handNext(const platform::Data& bytes, RunningBase& running) const;

  const Sink sink_;
  const std::string about_;

  mutable platform::Mutex mutex_;
  std::map<std::size_t, platform::Data> waiting_ VARO_GUARDED_BY(mutex_);
  std::size_t next_ VARO_GUARDED_BY(mutex_) = 0;
  /// A call hands parts over.
  bool isHanding_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::detail
