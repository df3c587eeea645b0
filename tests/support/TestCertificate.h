#pragma once

#include <string>

namespace varo::test {

/// A key and a self-signed certificate for 127.0.0.1, both PEM.
struct TestCertificate {
  std::string certificate;
  std::string key;
};

/// Valid from yesterday until `daysValid` from now; negative: expired already.
[[nodiscard]] TestCertificate makeTestCertificate(int daysValid);

}  // namespace varo::test
