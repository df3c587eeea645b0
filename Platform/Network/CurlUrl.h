#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Network/CurlHandles.h"

#include <string>
#include <string_view>

namespace varo::platform {

/// A parsed http(s) URL. What is checked and what is sent are one and the same object, so that no
/// second parser can understand an address differently. Private to the curl adapter.
class CurlUrl {
 public:
  /// Errors: `HttpTransportError::kInvalidUrl`; texts that cannot be parsed do not appear in them,
  /// since nobody can say which part would be a secret.
  [[nodiscard]] static Result<CurlUrl> parse(const std::string& url);

  /// The target of a redirect from here; `location` may be relative. Errors as `parse`, also for
  /// other schemes than http(s).
  [[nodiscard]] Result<CurlUrl> resolve(const std::string& location) const;

  /// What is sent; valid while this object lives.
  [[nodiscard]] CURLU* handle() const noexcept { return handle_.get(); }

  [[nodiscard]] bool isHttps() const noexcept { return scheme_ == "https"; }
  /// In lower case.
  [[nodiscard]] const std::string& host() const noexcept { return host_; }
  /// Whether a Host header of this value names the same server. Any letter case.
  [[nodiscard]] bool isNamedBy(std::string_view hostHeader) const noexcept;
  /// Whether scheme, host and port are the same.
  [[nodiscard]] bool hasSameOrigin(const CurlUrl& other) const noexcept {
    return scheme_ == other.scheme_ && host_ == other.host_ && port_ == other.port_;
  }

  /// For errors and logs: without user name, password and fragment, secrets in the query redacted.
  /// Made anew at each call: hardly any transfer comes to need it.
  [[nodiscard]] std::string safeText() const;

 private:
  explicit CurlUrl(CurlUrlHandle handle);
  [[nodiscard]] static Result<CurlUrl> finish(CurlUrlHandle handle);

  CurlUrlHandle handle_;
  std::string scheme_;
  std::string host_;
  std::string port_;
};

}  // namespace varo::platform
