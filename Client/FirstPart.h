#pragma once

#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/HttpTransport.h"
#include "varo/outcome.h"

#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <stop_token>

namespace varo::detail {

/// The first part of an object, which tells what the others are. Whoever asked for it takes its
/// answer, unless its head was enough to ask for the others: then its step beside theirs does.
/// Thread-safe.
class FirstPart {
 public:
  using Taker = std::function<void(const Outcome<platform::HttpResponse>& answer)>;

  /// `alone` takes an answer that comes before any `claim`. The part ends with the run.
  FirstPart(Taker alone, const std::stop_token& run);

  /// Of the request for the part.
  [[nodiscard]] std::stop_token token() const noexcept { return stop_->token(); }
  /// All of it has come, or failed. Once.
  void answered(const Outcome<platform::HttpResponse>& answer);

  /// Its answer now waits for `takeIn` or `takeAlone`. False where it was taken or claimed already.
  [[nodiscard]] bool claim();
  /// Refuses claims from now on: it has failed and is sent again, so others would press the server.
  void stayAlone();
  /// After a claim: the answer goes to the step's taker, and ends early where the step is stopped.
  void takeIn(const std::stop_token& step, Taker taker);
  /// After a claim: it goes to who asked for it, after all.
  void takeAlone();

 private:
  void endWith(const std::stop_token& token);
  void give(Taker taker);

  const std::shared_ptr<platform::Cancellation> stop_ = std::make_shared<platform::Cancellation>();

  platform::Mutex mutex_;
  Taker alone_ VARO_GUARDED_BY(mutex_);
  /// None from the claim on until the part is given to somebody, and from the answer on.
  Taker taker_ VARO_GUARDED_BY(mutex_);
  /// One that nobody could take yet.
  std::optional<Outcome<platform::HttpResponse>> answer_ VARO_GUARDED_BY(mutex_);
  bool isClaimed_ VARO_GUARDED_BY(mutex_) = false;
  /// Of the run and of the step. Constant from `takeIn` on.
  std::list<std::stop_callback<std::function<void()>>> ends_;
};

}  // namespace varo::detail
