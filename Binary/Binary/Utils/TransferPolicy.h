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

/// Sets the policy of the process, for operations that start from now on: each takes its policy
/// once, when it starts. One operation gets another with `OperationSettings`. Thread-safe.
void setTransferPolicy(TransferPolicy policy) noexcept;

/// The policy in force. Thread-safe.
[[nodiscard]] TransferPolicy transferPolicy() noexcept;

}  // namespace varo::binary
