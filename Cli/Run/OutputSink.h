#pragma once

#include "Cli/Run/Session.h"
#include "varo/source.h"

#include <cstdint>
#include <memory>

namespace varo::cli {

/// Takes the bytes of a download to standard output, until a write fails. A slow reader slows it
/// down, an interrupt ends its wait.
class OutputSink {
 public:
  explicit OutputSink(Session& session);

  /// For one transfer; the session outlives it.
  [[nodiscard]] Sink sink() const;

  // To be asked when the transfer has its outcome.

  /// `outcome`, or the failure to write that was behind it. Tells people how much was written.
  [[nodiscard]] Outcome concluded(Outcome outcome) const;

 private:
  struct State {
    platform::ErrorPtr failure;
    std::uint64_t bytes = 0;
  };

  Session& session_;
  /// Of the thread that the bytes come on, and after the outcome of whoever asks.
  const std::shared_ptr<State> state_;
};

}  // namespace varo::cli
