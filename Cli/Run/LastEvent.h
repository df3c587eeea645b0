#pragma once

#include <functional>

namespace varo::cli {

class Output;

/// Runs `command`, which returns its exit status. An exception that leaves it is told as its
/// failure, in fixed words where there is not even memory for that, so that a script always reads a
/// last event.
[[nodiscard]] int runToItsLastEvent(Output& output, const std::function<int()>& command) noexcept;

}  // namespace varo::cli
