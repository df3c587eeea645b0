#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace varo::sandbox {

/// The object store that templates of online transfers point at, and the keys that open it.
struct SignedStoreOptions {
  std::string accessKey = "sandbox";
  std::string secretKey = "sandbox-secret-key";
  std::string region = "us-east-1";
  /// Scheme, host and port of an outside S3-compatible store, without a path; empty: the sandbox's
  /// own store. The keys and the region are then that store's.
  std::string outsideUrl{};

  // Of the sandbox's own store only.

  /// Whether a request without a signature is refused.
  bool requiresSignature = true;
  /// Whether a signature may leave the body out ("UNSIGNED-PAYLOAD" in place of its digest).
  bool allowsUnsignedPayload = true;
  /// The buckets that there are: requests to others are refused. Empty: any first part of a path.
  std::vector<std::string> buckets{};
  /// Bytes that all parts but the last of an upload in parts have at least. Tests with small ones
  /// lower it.
  std::uint64_t leastPartBytes = std::uint64_t{5} << 20;
  /// How far the store's clock is ahead of this machine's; negative: behind.
  std::chrono::seconds clockOffset{0};
};

}  // namespace varo::sandbox
