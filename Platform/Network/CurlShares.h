#pragma once

#include "Platform/Network/CurlHandles.h"
#include "Platform/Network/HttpTransport.h"

#include <memory>
#include <string>
#include <vector>

namespace varo::platform {

/// What libcurl keeps from one request for the next: TLS sessions, and the cookies of each set of
/// credentials apart. A cookie can stand for who logged in, so no request with another token has
/// it. Private to the curl adapter; used by the I/O thread alone, so a share needs no lock.
class CurlShares {
 public:
  /// Alive while a handle uses it, also when it is kept no more.
  using Ptr = std::shared_ptr<CURLSH>;

  /// The share of the requests with the same credentials in their headers; its cookies last as long
  /// as it is among those used last. Null where there is no memory; so is the other.
  [[nodiscard]] Ptr withCookies(const std::vector<HttpHeader>& headers);
  [[nodiscard]] Ptr withoutCookies();

 private:
  struct Kept {
    /// A digest: credentials are not held longer than their request.
    std::string credentials;
    Ptr share;
  };

  std::vector<Kept> kept_;  // the one used last first
  Ptr withoutCookies_;
};

}  // namespace varo::platform
