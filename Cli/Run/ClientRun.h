#pragma once

#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/Session.h"
#include "varo/options.h"
#include "varo/transfer.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace varo::cli {

/// The options of a client of the service at `url`, as the global options say. Without an access
/// key.
[[nodiscard]] Options clientOptions(const GlobalOptions& global, std::string url);

/// Tells people that a request waits to be sent for the time of this number.
void tellOfAttempt(Session& session, int attempt);

/// What became of a function of the client that answers at once.
template <typename T, typename Read>
[[nodiscard]] Outcome outcomeOf(const varo::Outcome<T>& given, const Read& read) {
  if (!given) return {Outcome::Kind::kFailure, errorOf(given.error())};
  return {Outcome::Kind::kSuccess, read(*given)};
}

/// For what cancelled transfers have to clean up, all of a command together.
inline constexpr std::chrono::seconds kLongestCleaning{5};

/// Runs a transfer of the typed client to its outcome; `read` makes the result of what it gives.
/// Its progress is told as chunks of `id`, of one without an id not at all. An interrupt cancels
/// it, and what it has to clean up is waited for a while.
template <typename T, typename Read>
[[nodiscard]] Outcome awaitTransfer(Session& session, const std::string& id,
                                    const std::function<Transfer<T>()>& start, const Read& read) {
  std::optional<Transfer<T>> transfer;
  Outcome outcome = session.await(
      [&](const Session::Blocks& blocks) {
        transfer.emplace(start());
        transfer->onProgress([&output = session.output(), id](const Progress& progress) {
          // Nothing is said of what has not begun.
          if (id.empty() || (progress.done == 0 && progress.total == 0)) return;
          output.chunk(id, static_cast<std::int64_t>(progress.done),
                       static_cast<std::int64_t>(progress.total));
        });
        transfer->onDone(blocks.guarded([blocks, read](const varo::Outcome<T>& given) {
          const Outcome made = outcomeOf(given, read);
          const auto& tell =
              made.kind == Outcome::Kind::kSuccess ? blocks.onSuccess : blocks.onFailure;
          tell(made.value);
        }));
      },
      {}, Session::Ending::kIsTold,
      [&, told = 0]() mutable {
        // A wait begins and ends on threads of the library; people hear of one that lasts.
        if (!transfer || transfer->state() != State::kBackingOff) return;
        const int next = transfer->progress().attempt;
        if (std::exchange(told, next) != next) tellOfAttempt(session, next);
      });
  if (transfer) {
    transfer->cancel();
    (void)transfer->waitFor(kLongestCleaning);
  }
  return outcome;
}

}  // namespace varo::cli
