#pragma once

#include "Client/PartialFile.h"
#include "Client/Running.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/source.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace varo::detail {

/// Hands the bytes of a partial file to the application's function while they come, in order, from
/// threads of the pool: what moves bytes must not wait for it. Thread-safe.
class SinkFeed : public std::enable_shared_from_this<SinkFeed> {
 public:
  /// `about` names the download in failures.
  SinkFeed(std::string about, Sink sink, std::shared_ptr<PartialFile> file,
           std::shared_ptr<RunningBase> handle);

  /// A run begins, which `stop` can end.
  void begin(std::stop_token stop);
  /// There are more bytes. Returns at once.
  void wake();
  /// Hands over all that are there, and returns after that: false where it could not.
  [[nodiscard]] bool finish();
  /// No call of the function runs when this returns, and none will before `begin`.
  void end();

  /// What the function threw, or that a file could not be read.
  [[nodiscard]] std::optional<Failure> failure() const;

 private:
  /// Hands over one piece. False where there is none, or no use for it.
  [[nodiscard]] bool step();
  [[nodiscard]] bool handOver();
  [[nodiscard]] bool isOver() const;
  void fail(Failure failure);

  const std::string about_;
  const Sink sink_;
  const std::shared_ptr<PartialFile> file_;
  const std::shared_ptr<RunningBase> handle_;
  std::atomic<bool> awake_{false};
  /// Bytes that the function has. Owned by the call of `RunningBase::move`.
  std::uint64_t handedOver_ = 0;
  /// Whether that were all that there were, at the last look.
  std::atomic<bool> hasAll_{false};

  mutable platform::Mutex mutex_;
  std::stop_token stop_ VARO_GUARDED_BY(mutex_);
  bool isOpen_ VARO_GUARDED_BY(mutex_) = false;
  std::optional<Failure> failure_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
