#include "Cli/Run/OutputSink.h"

#include "Cli/Run/StandardOutput.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <span>
#include <stdexcept>
#include <string_view>
#include <unistd.h>

namespace varo::cli {

OutputSink::OutputSink(Session& session) : session_(session), state_(std::make_shared<State>()) {}

Sink OutputSink::sink() const {
  return [&interrupts = session_.interrupts(), state = state_](std::span<const std::byte> bytes) {
    const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    if (const auto written = writeBytes(STDOUT_FILENO, text, interrupts); !written) {
      state->failure = written.error();
      // Ends the transfer; `concluded` says why.
      throw std::runtime_error(written.error()->localizedDescription());
    }
    state->bytes += bytes.size();
  };
}

Outcome OutputSink::concluded(Outcome outcome) const {
  if (outcome.kind == Outcome::Kind::kSuccess) {
    session_.output().note(fmt::format("Wrote {} to standard output", formatBytes(state_->bytes)));
  } else if (outcome.kind == Outcome::Kind::kFailure && session_.interrupts().raised()) {
    return {Outcome::Kind::kInterrupted, {}};
  } else if (outcome.kind == Outcome::Kind::kFailure && state_->failure != nullptr) {
    return {Outcome::Kind::kFailure, state_->failure};
  }
  return outcome;
}

}  // namespace varo::cli
