#include "Binary/Binary/Utils/TransferPolicy.h"

#include <atomic>

namespace varo::binary {
namespace {

// A switch of its own: nothing else is published through it.
std::atomic<TransferPolicy> policyInForce{TransferPolicy::kCompatible};

}  // namespace

void setTransferPolicy(TransferPolicy policy) noexcept {
  policyInForce.store(policy, std::memory_order_relaxed);
}

TransferPolicy transferPolicy() noexcept { return policyInForce.load(std::memory_order_relaxed); }

}  // namespace varo::binary
