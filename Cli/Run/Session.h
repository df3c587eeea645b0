#pragma once

#include "Cli/Arguments/GlobalOptions.h"
#include "Cli/Run/Interrupts.h"
#include "Cli/Run/Operation.h"
#include "Cli/Run/Output.h"
#include "varo/options.h"

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace varo::binary {
class OperationSettings;
}

namespace varo::cli {

class TransferWatch;

/// When requests are sent again, as the global options say: 3 times under the safe policy, else
/// never.
[[nodiscard]] Retry retryOf(const GlobalOptions& global);

/// Exit status of a command whose operation failed.
inline constexpr int kExitFailure = 1;

/// What people read about what the success block received, or about a pause.
using Describe = std::function<std::string(const platform::Dictionary& result)>;

/// How outcomes are told to people.
struct Wording {
  Describe success{};
  Describe paused{};
  Explain failure = describeFailure;
  /// What the operation was about: files, keys, addresses. Those that the message of a failure does
  /// not name stand behind it.
  std::vector<std::string> about = {};
};

/// What every command works with: the library set up as the global options say, the output, and a
/// way to run an operation to its end. One a process. Commands use it on the main thread.
class Session {
 public:
  struct Blocks {
    Operation::Block onSuccess;
    Operation::Block onFailure;
    Operation::Block onProgress;
    Operation::Block onPaused;

    /// `block`, for the library to call. What it throws ends the operation, when memory runs out
    /// for example: the library would only log it, and the command would wait for ever.
    template <typename F>
    [[nodiscard]] auto guarded(F block) const {
      return [onFailure = onFailure, block = std::move(block)](const auto&... arguments) {
        try {
          block(arguments...);
        } catch (...) {
          onFailure(unexpectedFailure());
        }
      };
    }
  };
  using Start = std::function<void(const Blocks&)>;
  /// Called at once after an interrupt and then several times a second, on the main thread, until
  /// there is an outcome: its own, or what it makes a block receive.
  using Pause = std::function<std::optional<Outcome>()>;

  /// Called several times a second on the main thread, to tell of progress that others count.
  using Tick = std::function<void()>;

  /// Whether an operation may end without a word, as some do with the compatible policy.
  enum class Ending { kMayBeSilent, kIsTold };

  /// Sets the library up. `interrupts` outlives the session.
  Session(GlobalOptions options, std::shared_ptr<Output> output, Interrupts& interrupts);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  [[nodiscard]] const GlobalOptions& options() const noexcept { return options_; }
  /// The settings of one operation of the library: those of the process, and when its requests are
  /// sent again.
  [[nodiscard]] std::shared_ptr<binary::OperationSettings> settings() const;
  /// The options dictionary for an operation, with such settings in it, or with these.
  [[nodiscard]] platform::Dictionary operationOptions() const;
  [[nodiscard]] platform::Dictionary operationOptions(
      const std::shared_ptr<binary::OperationSettings>& settings) const;
  [[nodiscard]] Output& output() noexcept { return *output_; }
  [[nodiscard]] Interrupts& interrupts() noexcept { return interrupts_; }

  /// Runs an operation to its outcome. Nothing of it is written but its progress. Without a `pause`
  /// an interrupt is an outcome.
  [[nodiscard]] Outcome await(const Start& start, const Pause& pause = {},
                              Ending ending = Ending::kMayBeSilent, const Tick& tick = {});

  /// Returns after SIGINT or SIGTERM.
  void waitForInterrupt();

  /// Runs an operation, writes its outcome, for people in these words, and returns the exit status.
  [[nodiscard]] int perform(const std::string& activity, const Start& start, const Wording& wording,
                            const Tick& tick = {});

  /// Writes an outcome and returns the exit status that goes with it.
  [[nodiscard]] int finish(const Outcome& outcome, const Wording& wording = {});

 private:
  [[nodiscard]] std::optional<Outcome> checkForSilence() const;

  const GlobalOptions options_;
  const std::shared_ptr<Output> output_;
  Interrupts& interrupts_;
  std::shared_ptr<TransferWatch> watch_;  // with the compatible policy only
};

}  // namespace varo::cli
