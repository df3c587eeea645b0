#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/HttpTransport.h"

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

  /// The value of the first header of this name, in any letter case.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

/// The end of one request: a response, or an error where `error` is set.
struct ScriptedAnswer {
  std::optional<platform::HttpResponse> response;
  platform::ErrorPtr error;
};

/// An answer with a body; `std::nullopt` for none.
[[nodiscard]] ScriptedAnswer answerWith(int status, std::optional<std::string> body,
                                        std::vector<platform::HttpHeader> headers = {});
[[nodiscard]] ScriptedAnswer failWith(std::int64_t code, std::string description);

/// A transport without a network: it records each request and answers from a script.
///
/// Answers come from the queue, in the order of `send`; when it is empty, from the handler; without
/// one, the request fails with an error that says so. Completions run on the runtime's pool, or,
/// while `hold` is on, one by one on the thread that calls `release`. Install it with
/// `VRONetworkUtility::setTransport`. Thread-safe.
class FakeHttpTransport final : public platform::HttpTransport {
 public:
  using Handler = std::function<ScriptedAnswer(const RecordedRequest&)>;

  /// Appends an answer to the script.
  void answer(ScriptedAnswer answer);
  /// Answers what the script does not. Called on the thread that sends.
  void setHandler(Handler handler);

  /// Keeps completions back from now on.
  void hold();
  /// Completes the oldest request that is kept back, on this thread. False when there is none.
  bool release();
  /// Completes all that are kept back and keeps back no more.
  void releaseAll();

  [[nodiscard]] std::vector<RecordedRequest> requests() const;
  [[nodiscard]] std::size_t requestCount() const;
  /// Requests kept back now.
  [[nodiscard]] std::size_t heldCount() const;

  std::shared_ptr<platform::HttpTransfer> send(platform::HttpRequest request,
                                               platform::HttpCompletion completion) override;
  void shutdown() override;

 private:
  struct Transfer;
  using TransferPtr = std::shared_ptr<Transfer>;

  mutable platform::Mutex mutex_;
  std::deque<ScriptedAnswer> script_ VARO_GUARDED_BY(mutex_);
  Handler handler_ VARO_GUARDED_BY(mutex_);
  std::vector<RecordedRequest> requests_ VARO_GUARDED_BY(mutex_);
  std::deque<TransferPtr> held_ VARO_GUARDED_BY(mutex_);
  bool holding_ VARO_GUARDED_BY(mutex_) = false;
  bool shutDown_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::test
