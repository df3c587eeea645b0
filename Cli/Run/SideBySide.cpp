#include "Cli/Run/SideBySide.h"

#include "Cli/Failures/CommandErrors.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Mutex.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>

namespace varo::cli {

using platform::Dictionary;
using platform::MutexLock;

namespace {

/// How soon an interrupt is noticed, and how often a progress display is drawn anew.
constexpr std::chrono::milliseconds kTickInterval{100};

/// Wakes the main thread.
class Bell {
 public:
  void ring() noexcept {
    const MutexLock lock(mutex_);
    hasRung_ = true;
    changed_.notifyAll();
  }
  void waitATick() {
    const MutexLock lock(mutex_);
    const auto until = std::chrono::steady_clock::now() + kTickInterval;
    while (!hasRung_ && changed_.waitUntil(mutex_, until) == std::cv_status::no_timeout) {
    }
    hasRung_ = false;
  }

 private:
  platform::Mutex mutex_;
  platform::ConditionVariable changed_;
  bool hasRung_ VARO_GUARDED_BY(mutex_) = false;
};

class Ended final : public HeldTransfer {
 public:
  explicit Ended(Outcome outcome) : outcome_(std::move(outcome)) {}
  void cancel() override {}
  [[nodiscard]] std::optional<Outcome> outcome(std::chrono::milliseconds) const override {
    return outcome_;
  }

 private:
  const Outcome outcome_;
};

/// One run of a batch; of the main thread.
class Run {
 public:
  Run(Session& session, const Batch& batch) : session_(session), batch_(batch) {}

  BatchEnd toItsEnd() {
    session_.output().beginItems(batch_.items.size(), batch_.bytes);
    const auto most = static_cast<std::size_t>(session_.options().parallel);
    while (next_ < batch_.items.size() || !running_.empty()) {
      if (session_.interrupts().raised()) {
        end_.isInterrupted = true;
        giveUp();
        break;
      }
      // Not all at once: there may be as many as a table has rows.
      while (next_ < batch_.items.size() && running_.size() < most) startNext();
      if (!tellEnds()) bell_.waitATick();
      session_.output().tick();
    }
    return std::move(end_);
  }

 private:
  void startNext() {
    const Item& item = batch_.items[next_++];
    const ItemReports reports{[&output = session_.output(), &item](const Progress& progress) {
                                if (progress.done > 0 || progress.total > 0) {
                                  output.itemProgress(item, progress.done, progress.total);
                                }
                              },
                              [this] { bell_.ring(); }};
    running_.emplace(item.number, batch_.start(item, reports));
  }

  /// Of all that have ended; whether there was one.
  bool tellEnds() {
    bool wasThere = false;
    for (auto at = running_.begin(); at != running_.end();) {
      const auto outcome = at->second->outcome(std::chrono::milliseconds(0));
      if (!outcome) {
        ++at;
        continue;
      }
      const Item& item = batch_.items[at->first];
      at = running_.erase(at);
      tell(item, *outcome);
      wasThere = true;
    }
    return wasThere;
  }

  void tell(const Item& item, const Outcome& outcome) {
    if (outcome.kind == Outcome::Kind::kSuccess) {
      const Dictionary result = outcome.value.dictionaryValue();
      Dictionary entry = item.identity;
      entry.addEntries(result);
      end_.results.push_back(std::move(entry));
      session_.output().itemSucceeded(item, outcome.value,
                                      [&] { return batch_.success(item, result); });
      return;
    }
    const FailureFacts facts = factsOf(outcome.value);
    end_.kind = ++end_.failed == 1 || end_.kind == facts.kind ? facts.kind
                                                              : std::string(nameOf(Kind::kOther));
    end_.allAreRetryable = end_.allAreRetryable && facts.isRetryable;
    session_.output().itemFailed(item, outcome.value, [&](const platform::Value& failure) {
      return batch_.failure(item, failure);
    });
  }

  void giveUp() {
    for (const auto& [number, transfer] : running_) transfer->cancel();
    const auto until = std::chrono::steady_clock::now() + kLongestCleaning;
    for (const auto& [number, transfer] : running_) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
          until - std::chrono::steady_clock::now());
      (void)transfer->outcome(std::max(left, std::chrono::milliseconds(0)));
    }
  }

  Session& session_;
  const Batch& batch_;
  Bell bell_;
  BatchEnd end_;
  std::size_t next_ = 0;
  // Goes first, with its callbacks, which use what stands above.
  std::map<std::size_t, std::unique_ptr<HeldTransfer>> running_;
};

}  // namespace

std::unique_ptr<HeldTransfer> endedWith(Outcome outcome) {
  return std::make_unique<Ended>(std::move(outcome));
}

BatchEnd runSideBySide(Session& session, const Batch& batch) {
  return Run(session, batch).toItsEnd();
}

Outcome outcomeOf(const BatchEnd& end, std::string_view key, std::size_t count,
                  std::string_view what, bool repeatIsHarmless) {
  if (end.isInterrupted) return {Outcome::Kind::kInterrupted, {}};
  if (end.failed > 0) {
    const std::string message =
        fmt::format("{} of {} {} failed; each is told above", end.failed, count, what);
    const bool isRetryable = end.allAreRetryable && repeatIsHarmless;
    return {Outcome::Kind::kFailure, commandError(kCodeSomeFailed, message, end.kind, isRetryable)};
  }
  platform::Array results;
  for (const Dictionary& result : end.results) results.append(result);
  return {Outcome::Kind::kSuccess, Dictionary{{std::string(key), results}}};
}

}  // namespace varo::cli
