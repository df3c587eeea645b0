#include "Platform/Network/GuardedSend.h"

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/RequestObserver.h"

#include <atomic>
#include <exception>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace varo::platform {
namespace {

ErrorPtr cancelledError() {
  return makeTransportError(HttpTransportError::kCancelled, "The transfer was cancelled.");
}

ErrorPtr noAnswer(const std::string& text) {
  return makeTransportError(HttpTransportError::kNoAnswer, text);
}

/// The one end of a request.
class Ending {
 public:
  using Watch = std::stop_callback<std::function<void()>>;

  explicit Ending(HttpCompletion completion) : completion_(std::move(completion)) {}

  /// Keeps what watches for a cancellation until the end. Before the request is sent.
  void keep(std::unique_ptr<Watch> watch) {
    const MutexLock lock(mutex_);
    watch_ = std::move(watch);
  }

  [[nodiscard]] bool isOpen() {
    const MutexLock lock(mutex_);
    return completion_ != nullptr;
  }

  /// While a thread is inside `send`, an end that comes there goes to the pool.
  void setSending(std::thread::id thread) noexcept { sending_ = thread; }

  void end(std::optional<HttpResponse> response, ErrorPtr error) {
    if (error == nullptr && !response) {
      error = noAnswer("The transport ended the request with neither a response nor an error.");
    }
    // Both at once is a transport's mistake; the error is the safer half to believe.
    if (error != nullptr) response.reset();
    // The caller of `send` has no handle yet and may hold a lock.
    if (sending_.load() == std::this_thread::get_id()) return endOnPool(response, error);
    const JobContext::Scope scope(context_);
    if (const HttpCompletion completion = take()) completion(std::move(response), std::move(error));
  }

  /// For threads that may not run an application's code.
  void endOnPool(const std::optional<HttpResponse>& response, const ErrorPtr& error) {
    const HttpCompletion completion = take();
    if (completion == nullptr) return;
    const JobContext::Scope scope(context_);
    Runtime::shared().pool().postOrRun(
        [completion, response, error] { completion(response, error); });
  }

 private:
  /// The completion, for whoever asks first.
  HttpCompletion take() {
    HttpCompletion completion;
    std::unique_ptr<Watch> watch;
    {
      const MutexLock lock(mutex_);
      // Response, cancellation and drop may come at the same time. Only one of them finds it.
      completion.swap(completion_);
      watch.swap(watch_);
    }
    return completion;  // the watch goes without the lock: it waits for a call that is under way
  }

  const JobContext::Ptr context_ = JobContext::current();  // of whoever sends
  std::atomic<std::thread::id> sending_{};                 // the thread inside `send`, or none
  Mutex mutex_;
  HttpCompletion completion_ VARO_GUARDED_BY(mutex_);  // null once it was taken
  std::unique_ptr<Watch> watch_ VARO_GUARDED_BY(mutex_);
};

/// What the transport holds. The last copy to go says that no response can come any more.
class Obligation {
 public:
  explicit Obligation(std::shared_ptr<Ending> ending) : ending_(std::move(ending)) {}
  ~Obligation() {
    try {
      if (ending_->isOpen())
        ending_->endOnPool(std::nullopt, noAnswer("The transport dropped the request."));
    } catch (const std::exception&) {
      // Without memory even for that there is no way left to say anything.
    }
  }
  Obligation(const Obligation&) = delete;
  Obligation& operator=(const Obligation&) = delete;

  [[nodiscard]] Ending& ending() const noexcept { return *ending_; }

 private:
  const std::shared_ptr<Ending> ending_;
};

class GuardedTransfer final : public HttpTransfer {
 public:
  explicit GuardedTransfer(const std::shared_ptr<Ending>& ending) : ending_(ending) {}

  void cancel() override {
    std::shared_ptr<HttpTransfer> transfer;
    {
      const MutexLock lock(mutex_);
      requested_ = true;
      if (!sent_) return;  // `setSent` sees to it
      transfer = transfer_;
    }
    forward(transfer);
  }

  void setSent(const std::shared_ptr<HttpTransfer>& transfer) {
    {
      const MutexLock lock(mutex_);
      sent_ = true;
      transfer_ = transfer;
      if (!requested_) return;
    }
    forward(transfer);
  }

 private:
  void forward(const std::shared_ptr<HttpTransfer>& transfer) const {
    const auto ending = ending_.lock();
    if (ending == nullptr) return;  // it has ended
    try {
      if (transfer != nullptr) return transfer->cancel();
    } catch (...) {  // an application's code may throw anything
    }
    // Nobody is left to end it: the transport gave no handle, or its `cancel` threw.
    ending->endOnPool(std::nullopt, cancelledError());
  }

  // Weak: a caller that keeps this keeps no completion.
  const std::weak_ptr<Ending> ending_;
  Mutex mutex_;
  bool requested_ VARO_GUARDED_BY(mutex_) = false;
  bool sent_ VARO_GUARDED_BY(mutex_) = false;
  std::shared_ptr<HttpTransfer> transfer_ VARO_GUARDED_BY(mutex_);
};

/// Has the receiver take a body that came with the response, from a transport that knows no
/// receivers. An error takes the place of the response.
void handOver(BodyReceiver& receiver, RequestMeter* meter, std::optional<HttpResponse>& response,
              ErrorPtr& error) {
  if (!response || response->bodyWasReceived || !response->body || response->status / 100 != 2) {
    return;
  }
  const Data body = std::exchange(*response->body, Data());
  // Nobody can tell from the response any more.
  if (meter != nullptr && !meter->measure()) meter->set({.received = body.size()});
  Result<void> taken = receiver.begin(response->status, response->headers, body.size());
  if (taken) {
    taken = body.forEachPiece([&](std::string_view piece) { return receiver.write(piece); });
  }
  if (taken) return;
  response.reset();
  error = makeTransportError(HttpTransportError::kResponseBodyNotStored,
                             "The response could not be stored", *taken.error(), {});
}

HttpCompletion handingOver(const HttpRequest& request, HttpCompletion completion) {
  return [receiver = request.receiver, meter = request.meter, completion = std::move(completion)](
             std::optional<HttpResponse> response, ErrorPtr error) {
    try {
      handOver(*receiver, meter.get(), response, error);
    } catch (const std::exception& failure) {
      response.reset();
      error = makeTransportError(HttpTransportError::kNoResources, failure.what());
    }
    completion(std::move(response), std::move(error));
  };
}

}  // namespace

std::shared_ptr<HttpTransfer> sendGuarded(HttpTransport& transport, HttpRequest request,
                                          const std::stop_token& cancellation,
                                          HttpCompletion completion) {
  if (request.receiver != nullptr) completion = handingOver(request, std::move(completion));
  const auto ending = std::make_shared<Ending>(std::move(completion));
  auto transfer = std::make_shared<GuardedTransfer>(ending);
  if (cancellation.stop_requested()) {
    ending->endOnPool(std::nullopt, cancelledError());
    return transfer;
  }
  if (cancellation.stop_possible()) {
    ending->keep(std::make_unique<Ending::Watch>(cancellation, [transfer] {
      // A copy, since this function is gone where the transfer ends meanwhile.
      std::shared_ptr<GuardedTransfer>(transfer)->cancel();
    }));
  }
  // Held here as well, so that what `send` throws is told before that the request was dropped.
  const auto obligation = std::make_shared<Obligation>(ending);
  const auto fail = [&ending](const std::string& text) {
    ending->endOnPool(std::nullopt, noAnswer("The transport failed: " + text));
  };
  const auto complete = [obligation](std::optional<HttpResponse> response, ErrorPtr error) {
    obligation->ending().end(std::move(response), std::move(error));
  };
  ending->setSending(std::this_thread::get_id());
  try {
    auto sent = transport.send(std::move(request), complete);
    ending->setSending({});
    transfer->setSent(sent);
  } catch (const std::exception& failure) {
    fail(failure.what());
  } catch (...) {  // an application's code may throw anything
    fail("an exception that is no std::exception");
  }
  return transfer;
}

}  // namespace varo::platform
