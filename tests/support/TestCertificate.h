#pragma once

#include "tests/support/Base64.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace varo::test {

/// Runs openssl, which every test of TLS needs.
inline void runOpenSsl(const std::string& directory, const std::vector<std::string>& arguments) {
  ChildProcess openssl(
      {.program = "openssl", .arguments = arguments, .environment = {}, .directory = directory});
  ASSERT_EQ(openssl.wait(), 0) << openssl.errors();
}

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
  for (const auto& arguments : steps) runOpenSsl(directory, arguments);
}

/// The pin of a test certificate's key, computed by openssl alone.
inline std::string pinOf(const std::string& directory) {
  runOpenSsl(directory, {"pkey", "-in", directory + "/key.pem", "-pubout", "-outform", "DER",
                         "-out", directory + "/public.der"});
  runOpenSsl(directory, {"dgst", "-sha256", "-binary", "-out", directory + "/public.sha256",
                         directory + "/public.der"});
  return "sha256//" + base64Of(contentOf(directory + "/public.sha256"));
}

}  // namespace varo::test
