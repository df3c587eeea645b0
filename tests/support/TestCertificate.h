#pragma once

#include "tests/support/ChildProcess.h"

#include <gtest/gtest.h>

namespace varo::test {

/// Makes certificate.pem, self-signed for 127.0.0.1, and its key.pem in `directory`, which exists.
/// Valid until `daysValid` from now; negative: expired already.
inline void makeTestCertificate(const std::string& directory, const std::string& daysValid = "1") {
  const std::string certificate = directory + "/certificate.pem";
  const std::string key = directory + "/key.pem";
  const std::string first = directory + "/first.pem";
  const std::vector<std::string> steps[] = {
      {"req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-subj",
       "/CN=varo test", "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", first},
      {"x509", "-in", first, "-signkey", key, "-days", daysValid, "-out", certificate}};
  for (const auto& arguments : steps) {
    ChildProcess openssl(
        {.program = "openssl", .arguments = arguments, .environment = {}, .directory = directory});
    ASSERT_EQ(openssl.wait(), 0) << openssl.errors();
  }
}

}  // namespace varo::test
