#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "tests/support/SteppingClock.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using varo::binary::S3HMACGenerator;
using varo::binary::S3OperationType;
using varo::platform::Data;
using varo::platform::Dictionary;

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

/// The text up to the next NUL, which is taken from `rest`.
std::string next(std::string_view& rest) {
  const std::size_t end = rest.find('\0');
  std::string text(rest.substr(0, end));
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return text;
}

struct Input {
  S3OperationType type;
  Dictionary auth, requestTemplate, query;
  Data payload;
};

Input split(std::string_view rest) {
  Input input;
  input.type = static_cast<S3OperationType>(next(rest).size());
  for (const char* key : {"accessKeyID", "secretAccessKey", "regionName", "objectName"}) {
    input.auth.set(key, next(rest));
  }
  input.requestTemplate.set("method", next(rest));
  input.requestTemplate.set("Host", next(rest));
  input.requestTemplate.set("AuthParameters", Dictionary{{"serviceName", next(rest)}});
  for (std::size_t parameters = next(rest).size(); parameters > 0; --parameters) {
    const std::string key = next(rest);
    input.query.set(key, next(rest));
  }
  input.payload = Data::fromBytes(std::string(rest));
  return input;
}

S3HMACGenerator signerOf(const Input& input, const Dictionary& auth) {
  static const varo::test::SteppingClock clock(1369353600);
  S3HMACGenerator signer(auth, input.requestTemplate, input.payload, input.type, clock);
  if (!input.query.empty()) signer.setQueryParameters(input.query);
  return signer;
}

}  // namespace

/// Whatever the texts are: a canonical request that begins and ends as it has to, the same
/// signature for the same input (the first one derives the key, the others get the kept one), and
/// another one for another secret.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const Input input = split({reinterpret_cast<const char*>(bytes), size});
  S3HMACGenerator signer = signerOf(input, input.auth);
  const std::string request = signer.prepareCanonicalRequest().value();
  const bool isKnown =
      input.type == S3OperationType::kUpload || input.type == S3OperationType::kDownload;
  const std::string start = (isKnown ? input.requestTemplate["method"].textValue() : "") + "\n/" +
                            input.auth["objectName"].textValue() + "\n";
  require(request.starts_with(start));

  const Dictionary headers = signer.getRequestHeaders(input.type).value();
  const std::string authorization = headers["Authorization"].textValue();
  const std::size_t signedFrom = authorization.rfind(",SignedHeaders=");
  const std::size_t signatureFrom = authorization.rfind(",Signature=");
  require(signedFrom < signatureFrom && authorization.size() == signatureFrom + 11 + 64);
  const std::string names = authorization.substr(signedFrom + 15, signatureFrom - signedFrom - 15);
  const std::string digest = headers["X-Amz-Content-SHA256"].textValue();
  require(request.ends_with("\n\n" + names + "\n" + digest));
  if (!input.query.empty()) require(request.find("&\n", start.size()) != std::string::npos);

  require(signerOf(input, input.auth).getAuthorizationHeader().value() == authorization);
  Dictionary otherAuth = input.auth;
  otherAuth.set("secretAccessKey", input.auth["secretAccessKey"].textValue() + "x");
  require(signerOf(input, otherAuth).getAuthorizationHeader().value() != authorization);
  return 0;
}
