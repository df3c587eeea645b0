#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Network/CurlHandles.h"
#include "Platform/Network/CurlTransfer.h"

#include <chrono>
#include <deque>
#include <memory>
#include <thread>
#include <unordered_map>
#include <vector>

namespace varo::platform {

/// The I/O thread of a curl transport and what it drives. Private to the curl adapter.
///
/// Transfers wait in a queue of our own until one of the active ones ends: inside libcurl their
/// time-outs would run meanwhile. That queue is bounded by what the callers have in flight.
/// `submit`, `cancel` and `stop` are thread-safe.
class CurlEngine {
 public:
  using TransferPtr = std::shared_ptr<CurlTransfer>;

  CurlEngine(const NetworkConfiguration& configuration, ThreadPool& pool, HttpCookieStore& cookies);
  ~CurlEngine();
  CurlEngine(const CurlEngine&) = delete;
  CurlEngine& operator=(const CurlEngine&) = delete;

  /// Queues a transfer; after `stop`, completes it with an error.
  void submit(const TransferPtr& transfer);
  /// Ends a transfer with an error unless it has ended already.
  void cancel(const TransferPtr& transfer);
  /// Ends all transfers with an error and joins the thread. Never called on the I/O thread.
  void stop();

  /// Reports the end of a transfer that is never submitted.
  void refuse(HttpCompletion completion, ErrorPtr error);

 private:
  using Clock = CurlTransfer::Clock;
  using Job = ThreadPool::Job;
  struct Requests {
    std::vector<TransferPtr> incoming;
    std::vector<TransferPtr> cancelled;
    bool stopping = false;
  };
  struct Active {
    TransferPtr transfer;
    CurlEasy easy;
  };

  /// Starts the thread at the first call. An error where the system refuses one.
  [[nodiscard]] ErrorPtr startLocked() VARO_REQUIRES(mutex_);
  void wake();

  // On the I/O thread.
  void run();
  [[nodiscard]] bool step();
  bool takeRequests();
  void admit();
  void begin(TransferPtr transfer, CurlEasy easy);
  void collectEnded();
  /// An exchange has come to its end with `code`; its transfer may go on with another one.
  void endExchange(CURL* easy, CURLcode code);
  void resumePaused();
  [[nodiscard]] std::chrono::milliseconds longestWait();
  [[nodiscard]] std::chrono::milliseconds longestIdleWait();
  void endStalled();
  void endAll(const ErrorPtr& error);
  /// The same where memory is short: what cannot be completed is dropped, which its owner notices.
  void endAllWithLittleMemory(const ErrorPtr& error) noexcept;
  void endActive(CURL* easy, const ErrorPtr& error);
  void complete(CurlTransfer& transfer, CurlTransfer::End end);
  [[nodiscard]] std::chrono::milliseconds stallCheckInterval() const;
  [[nodiscard]] CurlEasy takeHandle();
  void keepHandle(CurlEasy easy);

  // Constant after construction.
  ThreadPool& pool_;
  const ErrorPtr shutDown_;  // both made while there is memory
  const ErrorPtr outOfMemory_;
  CurlShares shares_;  // of the I/O thread; outlives the connections
  const CurlMulti multi_;
  const CurlCommon common_;  // has pointers to shares_, sockets_ and pacer_
  const ErrorPtr mistake_;   // in the configuration: every request's end; null for none

  Mutex mutex_;
  Requests requests_ VARO_GUARDED_BY(mutex_);
  bool started_ VARO_GUARDED_BY(mutex_) = false;

  // Makes concurrent calls of `stop` wait for each other; the I/O thread never takes it.
  Mutex stopMutex_;
  std::thread thread_;  // set once under mutex_, joined under stopMutex_

  // Owned by the I/O thread, and by `stop` once that is joined.
  std::deque<TransferPtr> waiting_;
  std::unordered_map<CURL*, Active> active_;
  std::vector<CurlEasy> idle_;
  std::vector<Job> undelivered_;  // completions that the pool refused
  CurlSockets sockets_;
  CurlPacer pacer_;
  Clock::time_point nextStallCheck_;
  Clock::time_point lastEnd_;
  std::chrono::milliseconds shortestStall_ = tuning::kStallTimeout;  // of the active ones, or less
};

}  // namespace varo::platform
