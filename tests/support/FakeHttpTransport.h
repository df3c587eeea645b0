#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/HttpTransport.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::test {

/// What one request said, with its body read out; of a piece that is too large to be, what is wrong
/// with it.
struct RecordedRequest {
  platform::HttpMethod method = platform::HttpMethod::kGet;
  std::string url;
  std::vector<platform::HttpHeader> headers;
  std::optional<std::string> body;
  std::string spoolDirectory;
  std::uint64_t bodySize = 0;
  platform::ResponseLimits limits = {};
  std::optional<std::chrono::milliseconds> connectTimeout = {};
  std::optional<std::chrono::milliseconds> stallTimeout = {};

  /// The value of the first header of this name, in any letter case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// How a transport ends a request. All but the first two break its contract, as an application's
/// own transport may.
enum class ScriptedEnd : std::uint8_t {
  kOnce,
  kHeld,     // kept back as while `hold` is on
  kTwice,    // calls the completion a second time
  kDropped,  // destroys the completion without calling it
  kThrows,   // from inside `send`, before anything else
};

/// The end of one request: a response, or an error where `error` is set. With neither the
/// completion is called with neither.
struct ScriptedAnswer {
  std::optional<platform::HttpResponse> response;
  platform::ErrorPtr error;
  ScriptedEnd end = ScriptedEnd::kOnce;
};

/// An answer with a body; `std::nullopt` for none.
[[nodiscard]] ScriptedAnswer answerWith(int status, std::optional<std::string> body,
                                        std::vector<platform::HttpHeader> headers = {});
[[nodiscard]] ScriptedAnswer failWith(std::int64_t code, std::string description);
/// A completion with neither answer nor error.
[[nodiscard]] inline ScriptedAnswer endWithNothing() { return {}; }
[[nodiscard]] inline ScriptedAnswer endTwice(ScriptedAnswer answer) {
  answer.end = ScriptedEnd::kTwice;
  return answer;
}
/// Nothing until the transfer is released, cancelled or shut down.
[[nodiscard]] inline ScriptedAnswer holdBack(ScriptedAnswer answer) {
  answer.end = ScriptedEnd::kHeld;
  return answer;
}
[[nodiscard]] inline ScriptedAnswer dropCompletion() { return {{}, {}, ScriptedEnd::kDropped}; }
/// `send` throws a `std::runtime_error` that says "scripted".
[[nodiscard]] inline ScriptedAnswer throwFromSend() { return {{}, {}, ScriptedEnd::kThrows}; }

/// A transport without a network: it records each request and answers from a script.
///
/// Answers come from the queue, in the order of `send`; when it is empty, from the handler; without
/// one, the request fails with an error that says so. Completions run on the runtime's pool, or,
/// while `hold` is on, one by one on the thread that calls `release`. A transfer that is cancelled
/// before its completion ends with `HttpTransportError::kCancelled`, on the pool, and is kept back
/// no more. Made with `std::make_shared`; install it with `VRONetworkUtility::setTransport`.
/// Thread-safe.
class FakeHttpTransport final : public platform::HttpTransport,
                                public std::enable_shared_from_this<FakeHttpTransport> {
 public:
  using Handler = std::function<ScriptedAnswer(const RecordedRequest&)>;

  /// Appends an answer to the script.
  void answer(ScriptedAnswer answer);
  /// Answers what the script does not. Called on the thread that sends.
  void setHandler(Handler handler);

  /// Keeps no record of requests from now on: for benchmarks, which measure memory.
  void forget();

  /// Keeps completions back from now on.
  void hold();
  /// Completes the oldest request that is kept back, or the one after `older` others, on this
  /// thread. False when there is none.
  bool release(std::size_t older = 0);
  /// Completes all that are kept back and keeps back no more.
  void releaseAll();

  [[nodiscard]] std::vector<RecordedRequest> requests() const;
  [[nodiscard]] std::size_t requestCount() const;
  /// Requests kept back now.
  [[nodiscard]] std::size_t heldCount() const;
  /// Addresses of the transfers that a cancel has ended, in the order of the cancels.
  [[nodiscard]] std::vector<std::string> cancelled() const;

  std::shared_ptr<platform::HttpTransfer> send(platform::HttpRequest request,
                                               platform::HttpCompletion completion) override;
  void shutdown() override;

 private:
  struct Transfer;
  using TransferPtr = std::shared_ptr<Transfer>;

  void noteCancel(const Transfer& transfer);

  mutable platform::Mutex mutex_;
  std::deque<ScriptedAnswer> script_ VARO_GUARDED_BY(mutex_);
  Handler handler_ VARO_GUARDED_BY(mutex_);
  std::vector<RecordedRequest> requests_ VARO_GUARDED_BY(mutex_);
  std::deque<TransferPtr> held_ VARO_GUARDED_BY(mutex_);
  std::vector<std::string> cancelled_ VARO_GUARDED_BY(mutex_);
  bool forgets_ VARO_GUARDED_BY(mutex_) = false;
  bool holding_ VARO_GUARDED_BY(mutex_) = false;
  bool shutDown_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::test
