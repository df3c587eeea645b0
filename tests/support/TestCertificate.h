#pragma once

#include <memory>
#include <string>

namespace varo::test {

/// A self-signed certificate for 127.0.0.1.
struct TestCertificate {
  std::string certificate;    // PEM
  std::string key;            // PEM
  std::shared_ptr<void> tls;  // an SSL_CTX of a server that has the key
};

/// Valid from yesterday until `daysValid` from now; negative: expired already.
[[nodiscard]] TestCertificate makeTestCertificate(int daysValid);

}  // namespace varo::test
