#pragma once

#include <atomic>
#include <cstdint>

namespace varo::platform {

/// Which cookies are kept and sent back.
enum class CookieAcceptPolicy : std::uint8_t {
  kAlways,
  /// Cookies are neither kept nor sent; those kept before stay, unused, until the policy changes.
  kNever,
};

/// Rules the cookies that a transport keeps in memory, for as long as the transport lives and never
/// longer. A cookie goes to the host that set it, or to the domain it names where that is not a
/// public suffix (RFC 6265), and only with the credentials that it was set for: the headers
/// `isCredentialHeader` names. Signed requests have none. Thread-safe.
class HttpCookieStore {
 public:
  /// The store that the default transport obeys.
  [[nodiscard]] static HttpCookieStore& sharedStore() noexcept;

  /// In force for requests, and redirects of requests, that start from now on.
  void setAcceptPolicy(CookieAcceptPolicy policy) noexcept { policy_ = policy; }
  [[nodiscard]] CookieAcceptPolicy acceptPolicy() const noexcept { return policy_; }

 private:
  std::atomic<CookieAcceptPolicy> policy_{CookieAcceptPolicy::kAlways};
};

}  // namespace varo::platform
