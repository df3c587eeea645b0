#pragma once

#include <cstdint>

namespace varo::binary {

/// How to treat the answers and outcomes on which data can be lost or an operation can be left
/// without an end. docs/policy.md lists every difference.
enum class TransferPolicy : std::uint8_t {
  /// As existing back ends and clients count on. The default.
  kCompatible,
  /// Such a case is an error, reported to the caller.
  kSafe,
};

/// Sets the policy of the process. Meant to be set once, before the first operation; those that are
/// under way apply, step by step, whichever is in force. Thread-safe.
void setTransferPolicy(TransferPolicy policy) noexcept;

/// The policy in force. Thread-safe.
[[nodiscard]] TransferPolicy transferPolicy() noexcept;

}  // namespace varo::binary
