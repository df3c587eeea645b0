#include "Platform/Network/RequestAttempts.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/GuardedSend.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/RequestObserver.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::platform {
namespace {

using std::chrono::milliseconds;

/// Notes whether the receiver behind it was given anything that it cannot be given again.
class WatchedReceiver final : public BodyReceiver {
 public:
  explicit WatchedReceiver(std::shared_ptr<BodyReceiver> receiver)
      : receiver_(std::move(receiver)) {}

  [[nodiscard]] bool hasBegun() const noexcept { return hasBegun_; }

  [[nodiscard]] Result<void> begin(int status, const std::vector<HttpHeader>& headers,
                                   std::optional<std::uint64_t> expected) override {
    hasBegun_ = !receiver_->mayBeginAgain();
    return receiver_->begin(status, headers, expected);
  }
  [[nodiscard]] Result<void> write(std::string_view bytes) override {
    return receiver_->write(bytes);
  }

 private:
  const std::shared_ptr<BodyReceiver> receiver_;
  std::atomic<bool> hasBegun_{false};
};

/// One request over all its attempts.
///
///   sending --failed--> waiting --timer--> sending ... --> ended
///
/// Between two calls from outside it goes on in one chain: attempt, judgement, wait. Whoever clears
/// `isWaiting_` owns the chain from then on: the timer, or a cancel.
class Attempts final : public HttpTransfer, public std::enable_shared_from_this<Attempts> {
 public:
  Attempts(std::shared_ptr<HttpTransport> transport, HttpRequest request,
           std::shared_ptr<const RequestSettings> settings, HttpCompletion completion,
           const AttemptTools& tools)
      : transport_(std::move(transport)),
        settings_(std::move(settings)),
        tools_(tools),
        repeat_(repeatOf(request)),
        request_(std::move(request)),
        completion_(std::move(completion)) {
    if (!request_.connectTimeout) request_.connectTimeout = settings_->connectTimeout;
    if (!request_.stallTimeout) request_.stallTimeout = settings_->stallTimeout;
    if (request_.rateLimit == nullptr) request_.rateLimit = settings_->rateLimit;
    if (request_.onSent == nullptr) request_.onSent = settings_->onSent;
    if (request_.receiver == nullptr) return;
    receiver_ = std::make_shared<WatchedReceiver>(std::move(request_.receiver));
    request_.receiver = receiver_;
  }

  void start() {
    watch_.emplace(settings_->cancellation, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->cancel();
    });
    watchRepeats_.emplace(settings_->noMoreAttempts, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->stopRepeating();
    });
    attempt();
  }

  void cancel() override {
    std::shared_ptr<HttpTransfer> current;
    {
      const MutexLock lock(mutex_);
      isCancelled_ = true;
      current = current_;
      // Between two attempts the chain itself sees to it.
      if (!std::exchange(isWaiting_, false) && current == nullptr) return;
    }
    if (current != nullptr) return current->cancel();
    endCancelled();
  }

 private:
  void stopRepeating() {
    {
      const MutexLock lock(mutex_);
      isLast_ = true;
      if (!std::exchange(isWaiting_, false)) return;
    }
    endCancelled();
  }

  void attempt() {
    HttpRequest request = request_;
    if (settings_->authorizer != nullptr) {
      if (auto allowed = settings_->authorizer->authorize(request); !allowed) {
        return endOnPool(allowed.error());
      }
      shown_ = request.headers;
    }
    std::uint64_t sent = 0;
    {
      const MutexLock lock(mutex_);
      if (!isCancelled_) sent = ++sent_;
    }
    if (sent == 0) return endCancelled();
    std::shared_ptr<ObservedRequest> observed;  // destroyed unsent, it tells of it
    if (settings_->observer != nullptr) {
      observed = std::make_shared<ObservedRequest>(settings_->observer, request, ++timesSent_);
    }
    const auto transfer = sendGuarded(*transport_, std::move(request), {},
                                      [self = shared_from_this(), observed = std::move(observed)](
                                          std::optional<HttpResponse> response, ErrorPtr error) {
                                        if (observed != nullptr)
                                          observed->end(response ? &*response : nullptr, error);
                                        self->goOn(std::move(response), std::move(error));
                                      });
    {
      const MutexLock lock(mutex_);
      if (sent != sent_) return;  // it has ended, and another one may run by now
      current_ = transfer;
      if (!isCancelled_) return;
    }
    transfer->cancel();
  }

  /// Nobody looks for a cancellation here: what would be repeated ends as cancelled, and not with a
  /// failure that a pause would be taken for.
  void goOn(std::optional<HttpResponse> response, ErrorPtr error) {
    {
      const MutexLock lock(mutex_);
      ++sent_;
      current_ = nullptr;
    }
    try {
      if (response && isRenewedAfter(*response)) return attempt();
      if (const auto wait = waitAfter(response ? &*response : nullptr, error.get())) {
        return waitFor(*wait);
      }
    } catch (const std::exception&) {
      // There is no memory or timer to go on with: what this attempt has come to is told.
    }
    end(std::move(response), std::move(error));
  }

  [[nodiscard]] bool isRenewedAfter(const HttpResponse& response) {
    if (settings_->authorizer == nullptr || hasRenewed_) return false;
    return hasRenewed_ = settings_->authorizer->renew(shown_, response);
  }

  /// None: that was the last attempt.
  [[nodiscard]] std::optional<milliseconds> waitAfter(const HttpResponse* response,
                                                      const Error* error) {
    const auto& policy = settings_->retry;
    if (!policy || number_ >= policy->attempts) return std::nullopt;
    if (receiver_ != nullptr && receiver_->hasBegun()) return std::nullopt;
    if (!isWorthRepeating(repeat_, response, error)) return std::nullopt;
    std::optional<milliseconds> wait;
    if (response != nullptr) wait = retryAfterOf(*response, tools_.clock.now());
    if (wait && *wait > policy->longestRetryAfter) return std::nullopt;
    if (!wait) wait = policy->waitBefore(number_ + 1, tools_.random);
    const auto& budget = settings_->retryBudget;
    if (budget != nullptr && !budget->take(*wait)) return std::nullopt;
    return wait;
  }

  void waitFor(milliseconds wait) {
    ++number_;
    waitIsTold_ = true;
    if (settings_->onRetry != nullptr) settings_->onRetry(number_, wait);
    bool waits = false;
    {
      const MutexLock lock(mutex_);
      waits = isWaiting_ = !isCancelled_ && !isLast_;
    }
    if (!waits) return endCancelled();
    try {
      tools_.sleeper.wakeAfter(
          wait, [self = shared_from_this(), number = number_](TimerQueue::Reason reason) {
            self->wake(number, reason);
          });
    } catch (const std::exception& failure) {  // there is no timer
      if (stopWaiting()) end(std::nullopt, noResources(failure));
    }
  }

  /// False where a cancel has ended the wait, and goes on instead.
  [[nodiscard]] bool stopWaiting() {
    const MutexLock lock(mutex_);
    return std::exchange(isWaiting_, false);
  }

  void tellWaited() {
    if (std::exchange(waitIsTold_, false) && settings_->onWaited != nullptr) settings_->onWaited();
  }

  /// On the timers' thread, which must not be held up.
  void wake(int number, TimerQueue::Reason reason) {
    {
      const MutexLock lock(mutex_);
      if (!isWaiting_ || number != number_) return;
      isWaiting_ = false;
    }
    if (reason == TimerQueue::Reason::kShutDown) {
      return endOnPool(makeTransportError(HttpTransportError::kShutDown,
                                          "The library was shut down before the next attempt."));
    }
    Runtime::shared().pool().postOrRun([self = shared_from_this()] {
      try {
        self->tellWaited();
        self->attempt();
      } catch (const std::exception& failure) {
        self->end(std::nullopt, noResources(failure));
      }
    });
  }

  [[nodiscard]] static ErrorPtr noResources(const std::exception& failure) {
    return makeTransportError(HttpTransportError::kNoResources, failure.what());
  }

  void end(std::optional<HttpResponse> response, ErrorPtr error) {
    const HttpCompletion completion = std::exchange(completion_, nullptr);
    request_ = {};  // a timer may keep this for a while
    shown_.clear();
    watch_.reset();
    watchRepeats_.reset();
    tellWaited();
    constexpr int kFirstRefusal = 400;
    const bool isGood = response && response->status < kFirstRefusal;
    if (number_ > 1 && isGood && settings_->onRecovered != nullptr) settings_->onRecovered();
    completion(std::move(response), std::move(error));
  }

  /// For callers that may hold a lock which the completion takes.
  void endOnPool(ErrorPtr error) {
    const JobContext::Scope scope(context_);
    Runtime::shared().pool().postOrRun(
        [self = shared_from_this(), error = std::move(error)] { self->end(std::nullopt, error); });
  }
  void endCancelled() {
    endOnPool(makeTransportError(HttpTransportError::kCancelled, "The transfer was cancelled."));
  }

  const std::shared_ptr<HttpTransport> transport_;
  const std::shared_ptr<const RequestSettings> settings_;
  const AttemptTools tools_;
  const Repeat repeat_;
  const JobContext::Ptr context_ = JobContext::current();  // of whoever sends
  /// Null where the request has none.
  std::shared_ptr<WatchedReceiver> receiver_;

  // Of the chain.
  HttpRequest request_;
  HttpCompletion completion_;
  int number_ = 1;     // of the attempt; changes before a wait only
  int timesSent_ = 0;  // where somebody observes; a renewal counts as well
  bool hasRenewed_ = false;
  bool waitIsTold_ = false;  // and its end is not
  /// Of the attempt, where there is an authorizer.
  std::vector<HttpHeader> shown_;
  /// Set before the first attempt, gone with the end.
  std::optional<std::stop_callback<std::function<void()>>> watch_;
  std::optional<std::stop_callback<std::function<void()>>> watchRepeats_;

  Mutex mutex_;
  bool isCancelled_ VARO_GUARDED_BY(mutex_) = false;
  bool isLast_ VARO_GUARDED_BY(mutex_) = false;  // the attempt that is under way
  bool isWaiting_ VARO_GUARDED_BY(mutex_) = false;
  /// Changes when an attempt is sent and when it has ended.
  std::uint64_t sent_ VARO_GUARDED_BY(mutex_) = 0;
  /// Of the attempt that is sent; null before there is one, and once it has ended.
  std::shared_ptr<HttpTransfer> current_ VARO_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<HttpTransfer> sendAttempts(const std::shared_ptr<HttpTransport>& transport,
                                           HttpRequest request,
                                           std::shared_ptr<const RequestSettings> settings,
                                           HttpCompletion completion, const AttemptTools& tools) {
  auto attempts = std::make_shared<Attempts>(transport, std::move(request), std::move(settings),
                                             std::move(completion), tools);
  attempts->start();
  return attempts;
}

}  // namespace varo::platform
