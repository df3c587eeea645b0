#pragma once

#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Run/Item.h"
#include "Cli/Run/Session.h"
#include "varo/transfer.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::cli {

/// A transfer of any kind that is under way. Its end cancels it and waits for its callbacks.
class HeldTransfer {
 public:
  virtual ~HeldTransfer() = default;
  virtual void cancel() = 0;
  /// Its outcome; waits for it for at most `most`.
  [[nodiscard]] virtual std::optional<Outcome> outcome(std::chrono::milliseconds most) const = 0;
};

/// Where a transfer tells how it goes on; called on any thread.
struct ItemReports {
  std::function<void(const Progress&)> onProgress;
  std::function<void()> onEnd;
};

/// `read` makes the result of what the transfer gives, on the main thread.
template <typename T, typename Read>
[[nodiscard]] std::unique_ptr<HeldTransfer> hold(Transfer<T> transfer, const ItemReports& reports,
                                                 Read read) {
  class Held final : public HeldTransfer {
   public:
    Held(Transfer<T> transfer, Read read) : transfer_(std::move(transfer)), read_(read) {}
    void cancel() override { transfer_.cancel(); }
    [[nodiscard]] std::optional<Outcome> outcome(std::chrono::milliseconds most) const override {
      const auto given = transfer_.waitFor(most);
      return given ? std::optional(outcomeOf(*given, read_)) : std::nullopt;
    }

   private:
    Transfer<T> transfer_;
    Read read_;
  };
  transfer.onProgress(reports.onProgress);
  transfer.onDone([onEnd = reports.onEnd](const varo::Outcome<T>&) { onEnd(); });
  return std::make_unique<Held>(std::move(transfer), std::move(read));
}

/// An item for which nothing has to be moved.
[[nodiscard]] std::unique_ptr<HeldTransfer> endedWith(Outcome outcome);

/// Several transfers of one command.
struct Batch {
  std::vector<Item> items;
  /// Bytes of all, where they are known before.
  std::optional<std::uint64_t> bytes = {};
  /// Begins the transfer of an item, on the main thread.
  std::function<std::unique_ptr<HeldTransfer>(const Item&, const ItemReports&)> start;
  /// What people read about an item that succeeded, nothing where that is empty, and of one that
  /// failed.
  std::function<std::string(const Item&, const platform::Dictionary& result)> success;
  std::function<FailureText(const Item&, const platform::Value& failure)> failure;
};

/// How a batch has ended.
struct BatchEnd {
  std::size_t failed = 0;
  bool allAreRetryable = true;
  /// Of all failures; "other" where they are of several kinds.
  std::string kind;
  /// Of each item that succeeded, its identity and its result.
  std::vector<platform::Dictionary> results;
  bool isInterrupted = false;
};

/// Runs the items, at most as many at once as `--parallel` says, and tells of each as it ends. An
/// interrupt cancels those that run; what they have to clean up is waited for a while.
[[nodiscard]] BatchEnd runSideBySide(Session& session, const Batch& batch);

/// The outcome of a command whose items have ended so. `what` were to be moved: "files".
[[nodiscard]] Outcome outcomeOf(const BatchEnd& end, std::string_view key, std::size_t count,
                                std::string_view what, bool repeatIsHarmless);

}  // namespace varo::cli
