#include "Client/CredentialsCache.h"

#include "Client/Failures.h"
#include "Platform/Foundation/JobContext.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace varo::detail {

using platform::MutexLock;
using Time = std::chrono::system_clock::time_point;

namespace {

/// A request that is under way when its credentials expire is refused, so they are given up sooner.
constexpr std::chrono::seconds kLongestMargin{60};
constexpr int kPartOfLife = 10;
/// Longer than anything is good, and short enough to be added to a time.
constexpr std::chrono::hours kLongestLife{24 * 365};

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

CredentialsCache::CredentialsCache(Provider provider, const platform::Clock& clock)
    : provider_(std::move(provider)), clock_(clock) {}

Outcome<CredentialsPtr> CredentialsCache::get() { return getAfter(nullptr); }

Outcome<CredentialsPtr> CredentialsCache::getAfter(const CredentialsPtr& refused) {
  if (provider_ == nullptr) return std::make_shared<const Credentials>();
  const Time now = clock_.now();
  std::promise<Answer> told;
  std::shared_future<Answer> ofAnother;
  {
    // To look and to decide who asks is one step, or one would ask again who has just missed an
    // answer.
    const MutexLock lock(mutex_);
    if (kept_ == refused || now >= keptUntil_) kept_ = nullptr;
    if (kept_ != nullptr) return kept_;
    ofAnother = asking_;
    if (!ofAnother.valid()) asking_ = told.get_future().share();
  }
  return ofAnother.valid() ? ofAnother.get() : ask(told);
}

Outcome<CredentialsPtr> CredentialsCache::ask(std::promise<Answer>& told) {
  try {
    Answer answer = answerOf(provider_);
    // Before the others hear of it: whoever comes later finds it kept.
    keep(answer ? *answer : nullptr);
    told.set_value(answer);
    return answer;
  } catch (...) {  // no memory: those that wait must not wait for ever
    keep(nullptr);
    told.set_exception(std::current_exception());
    throw;
  }
}

void CredentialsCache::keep(const CredentialsPtr& given) {
  const Time now = clock_.now();
  const MutexLock lock(mutex_);
  asking_ = {};
  const bool expires = given != nullptr && given->expires.has_value();
  kept_ = expires ? given : nullptr;
  keptUntil_ = expires ? keptUntil(*given->expires, now) : now;
}

Outcome<CredentialsPtr> HeldCredentials::current() {
  {
    const MutexLock lock(mutex_);
    if (held_ != nullptr && !held_->expires) return held_;
  }
  auto given = cache_->get();
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
  auto given = cache_->getAfter(held);
  if (!given || wasRefused(**given)) return false;
  const MutexLock lock(mutex_);
  held_ = *std::move(given);
  return true;
}

}  // namespace varo::detail
