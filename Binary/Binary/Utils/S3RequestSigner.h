#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Network/HttpTransport.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::binary {

/// What a store's requests are signed with.
struct S3Keys {
  std::string accessKey;
  std::string secretKey;
  /// Empty for keys that do not expire.
  std::string sessionToken;
};

/// A request as its signature sees it.
struct S3Request {
  /// Names and values, not encoded.
  using Query = std::vector<std::pair<std::string, std::string>>;

  std::string_view method;
  /// As the header "Host" says it, with a port that is not the scheme's own.
  std::string host = {};
  /// Not encoded, with its first slash.
  std::string path = {};
  Query query = {};
  /// Those to be sent besides: all of them are signed.
  std::vector<platform::HttpHeader> headers = {};
  /// SHA-256 of the body in lower-case hexadecimal.
  std::string payloadHash = {};
};

/// `path` as it is sent and signed: all bytes but letters, digits and "-._~/" as "%XX".
[[nodiscard]] std::string encodedPath(std::string_view path);
/// `query` as it is sent and signed, in the order of the encoded names; empty for none.
[[nodiscard]] std::string encodedQuery(const S3Request::Query& query);

/// Signs requests to S3-compatible stores with AWS Signature Version 4, in the header
/// "Authorization", as the standard has it: unlike `S3HMACGenerator` it encodes path and query.
/// Immutable, thread-safe.
class S3RequestSigner {
 public:
  /// `clock` dates the signatures and lives as long as the signer.
  S3RequestSigner(S3Keys keys, std::string region,
                  const platform::Clock& clock = platform::Clock::system());

  /// All headers of the request that is sent now: those of `request`, "Host" and the signature's.
  /// Good for the store's tolerance of the clock, minutes. Errors: `kCryptoErrorDomain`; they hold
  /// no input.
  [[nodiscard]] platform::Result<std::vector<platform::HttpHeader>> sign(
      const S3Request& request) const;

 private:
  const S3Keys keys_;
  const std::string region_;
  const platform::Clock& clock_;
};

}  // namespace varo::binary
