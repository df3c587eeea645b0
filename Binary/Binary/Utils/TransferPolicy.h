#pragma once

#include <cstdint>

namespace varo::binary {

/// How to treat responses and outcomes that could lose data or leave an operation without an end.
/// docs/policy.md lists every difference.
enum class TransferPolicy : std::uint8_t {
  /// What existing back ends and clients count on. The default.
  kCompatible,
  /// Each such case is an error that is reported to the caller.
  kSafe,
};

/// Sets the policy of the process, for operations that start from now on: each takes its policy
/// once, when it starts. One operation gets another with `OperationSettings`. Thread-safe.
void setTransferPolicy(TransferPolicy policy) noexcept;

/// The policy in force. Thread-safe.
[[nodiscard]] TransferPolicy transferPolicy() noexcept;

}  // namespace varo::binary
