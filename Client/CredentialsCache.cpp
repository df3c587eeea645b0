#include "Client/CredentialsCache.h"

#include "Client/Failures.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <optional>
#include <utility>

namespace varo::detail {

using platform::MutexLock;
using Steady = std::chrono::steady_clock;
using Time = std::chrono::system_clock::time_point;

namespace {

/// A request that is under way when its credentials expire is refused, so they are given up sooner.
constexpr std::chrono::seconds kLongestMargin{60};
constexpr int kPartOfLife = 10;
/// Longer than anything is good, and short enough to be added to a time.
constexpr std::chrono::hours kLongestLife{24 * 365};

/// Whose provider runs on this thread; null for none.
thread_local const CredentialsCache* askedHere = nullptr;

/// Until when credentials that are there `now` are kept; none where they are not.
Time keptUntil(Time expires, Time now) {
  if (expires <= now) return now;
  const auto life = std::min(expires, now + kLongestLife) - now;
  return now + life - std::min<Time::duration>(kLongestMargin, life / kPartOfLife);
}

Outcome<CredentialsPtr> answerOf(const CredentialsCache::Provider& provider) {
  const platform::JobContext::Scope ofTheApplication(nullptr);
  try {
    Outcome<Credentials> given = provider();
    if (!given) return std::move(given).error();
    return std::make_shared<const Credentials>(*std::move(given));
  } catch (const std::exception& thrown) {
    return failureOf(Kind::kUnauthorized,
                     fmt::format("Options::credentials threw: {}", thrown.what()));
  } catch (...) {  // an application's code may throw anything
    return failureOf(Kind::kUnauthorized, "Options::credentials threw");
  }
}

}  // namespace

/// One answer of the provider, and those that wait for it. Thread-safe.
class CredentialsCache::Asking {
 public:
  void tell(const Outcome<CredentialsPtr>& answer) {
    const MutexLock lock(mutex_);
    answer_ = answer;
    changed_.notifyAll();
  }

  [[nodiscard]] Outcome<CredentialsPtr> wait(const std::stop_token& stop,
                                             std::chrono::milliseconds most) {
    const auto until = Steady::now() + most;
    const std::stop_callback wakes(stop, [this] {
      const MutexLock lock(mutex_);
      changed_.notifyAll();
    });
    const MutexLock lock(mutex_);
    while (!answer_ && !stop.stop_requested()) {
      if (changed_.waitUntil(mutex_, until) == std::cv_status::timeout) break;
    }
    if (answer_) return *answer_;
    if (stop.stop_requested()) {
      return failureOf(Kind::kCancelled, "It was stopped before Options::credentials answered");
    }
    return failureOf(Kind::kTimeout,
                     fmt::format("Options::credentials has not answered within {} s",
                                 std::chrono::ceil<std::chrono::seconds>(most).count()));
  }

 private:
  platform::Mutex mutex_;
  platform::ConditionVariable changed_;
  std::optional<Outcome<CredentialsPtr>> answer_ VARO_GUARDED_BY(mutex_);
};

CredentialsCache::CredentialsCache(Provider provider, const platform::Clock& clock)
    : provider_(std::move(provider)), clock_(clock) {}

Outcome<CredentialsPtr> CredentialsCache::get(const std::stop_token& stop,
                                              std::chrono::milliseconds longestWait) {
  return getAfter(nullptr, stop, longestWait);
}

Outcome<CredentialsPtr> CredentialsCache::getAfter(const CredentialsPtr& refused,
                                                   const std::stop_token& stop,
                                                   std::chrono::milliseconds longestWait) {
  if (provider_ == nullptr) return std::make_shared<const Credentials>();
  const Time now = clock_.now();
  std::shared_ptr<Asking> asking;
  std::function<void()> job;
  {
    // To look and to decide who asks is one step, or one would ask again who has just missed an
    // answer.
    const MutexLock lock(mutex_);
    if (kept_ == refused || now >= keptUntil_) kept_ = nullptr;
    if (kept_ != nullptr) return kept_;
    asking = asking_;
    if (asking == nullptr && !stop.stop_requested()) {
      asking = std::make_shared<Asking>();
      // First what needs memory: once it is noted that somebody asks, somebody does.
      job = [self = shared_from_this(), asking] { self->ask(*asking); };
      asking_ = asking;
    }
  }
  if (job != nullptr) platform::Runtime::shared().pool().postOrRun(std::move(job));
  if (asking == nullptr) asking = std::make_shared<Asking>();  // to tell of the stop
  return asking->wait(stop, longestWait);
}

void CredentialsCache::ask(Asking& asking) noexcept {
  Outcome<CredentialsPtr> answer = Failure();
  try {
    const auto* const former = std::exchange(askedHere, this);
    answer = answerOf(provider_);
    askedHere = former;
  } catch (const std::exception&) {
    // There is no memory to say what it has thrown.
  }
  // Before the others hear of it: whoever comes later finds it kept.
  keep(answer ? *answer : nullptr);
  asking.tell(answer);
}

bool CredentialsCache::isAskedHere() const noexcept { return askedHere == this; }

void CredentialsCache::keep(const CredentialsPtr& given) {
  const Time now = clock_.now();
  const MutexLock lock(mutex_);
  asking_ = nullptr;
  const bool expires = given != nullptr && given->expires.has_value();
  kept_ = expires ? given : nullptr;
  keptUntil_ = expires ? keptUntil(*given->expires, now) : now;
}

Outcome<CredentialsPtr> HeldCredentials::current() {
  {
    const MutexLock lock(mutex_);
    if (held_ != nullptr && !held_->expires) return held_;
  }
  auto given = cache_->get(stop_, longestWait_);
  if (!given) return given;
  const MutexLock lock(mutex_);
  return held_ = *std::move(given);
}

bool HeldCredentials::renew(const std::function<bool(const Credentials&)>& wasRefused) {
  CredentialsPtr held;
  {
    const MutexLock lock(mutex_);
    held = held_;
  }
  if (held != nullptr && !wasRefused(*held)) return true;
  auto given = cache_->getAfter(held, stop_, longestWait_);
  if (!given) return given.error().kind == Kind::kCancelled;
  if (wasRefused(**given)) return false;
  const MutexLock lock(mutex_);
  held_ = *std::move(given);
  return true;
}

std::shared_ptr<HeldCredentials> HeldCredentials::atTheEnd(std::chrono::milliseconds longestWait) {
  auto same = std::make_shared<HeldCredentials>(cache_, std::stop_token(), longestWait);
  CredentialsPtr held;
  {
    const MutexLock lock(mutex_);
    held = held_;
  }
  const MutexLock lock(same->mutex_);
  same->held_ = std::move(held);
  return same;
}

}  // namespace varo::detail
