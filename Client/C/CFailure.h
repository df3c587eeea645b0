#pragma once

#include "varo/c/failure.h"
#include "varo/failure.h"

namespace varo::capi {

[[nodiscard]] varo_code codeOf(Kind kind) noexcept;

/// A failure as C sees it, and the texts that it points to.
struct OwnedFailure final : varo_failure {
  explicit OwnedFailure(const Failure& failure);
  OwnedFailure(const OwnedFailure&) = delete;
  OwnedFailure& operator=(const OwnedFailure&) = delete;

  const Failure texts;
};

/// Stands for those that there was no memory for. Never freed.
[[nodiscard]] const varo_failure& noMemoryFailure() noexcept;

/// Gives a failure to a caller that may not want it. Its code.
varo_code give(const Failure& failure, varo_failure** to) noexcept;
/// The same where there was no memory.
varo_code giveNoMemory(varo_failure** to) noexcept;

}  // namespace varo::capi
