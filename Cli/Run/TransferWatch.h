#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/HttpTransport.h"

#include <chrono>
#include <cstddef>
#include <memory>

namespace varo::cli {

/// A transport that passes everything on to another one and knows how long nothing has been under
/// way. With the compatible policy some operations end without a word; this is how the command line
/// notices. Thread-safe.
class TransferWatch final : public platform::HttpTransport {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TransferWatch(std::shared_ptr<platform::HttpTransport> next);
  ~TransferWatch() override;

  /// Time since the last transfer ended; zero while one is under way.
  [[nodiscard]] Clock::duration idleTime() const;

  /// What lies between the two counts as a transfer that is under way.
  void hold() noexcept;
  void release() noexcept;

  std::shared_ptr<platform::HttpTransfer> send(platform::HttpRequest request,
                                               platform::HttpCompletion completion) override;
  void shutdown() override;

 private:
  struct State {
    mutable platform::Mutex mutex;
    std::size_t underWay VARO_GUARDED_BY(mutex) = 0;
    Clock::time_point idleSince VARO_GUARDED_BY(mutex) = Clock::now();
  };

  const std::shared_ptr<platform::HttpTransport> next_;
  const std::shared_ptr<State> state_;  // shared with completions, which may outlive this object
};

}  // namespace varo::cli
