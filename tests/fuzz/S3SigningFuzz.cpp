#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "tests/fuzz/Require.h"
#include "tests/support/SteppingClock.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

using varo::binary::S3HMACGenerator;
using varo::binary::S3OperationType;
using varo::platform::Data;
using varo::platform::Dictionary;

namespace {

/// The text up to the next NUL, which is taken from `rest`.
std::string next(std::string_view& rest) {
  const std::size_t end = rest.find('\0');
  std::string text(rest.substr(0, end));
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return text;
}

}  // namespace

/// Whatever the texts are: a canonical request that begins as it has to, and the same signature for
/// the same input (the first one derives the key, the second gets the kept one).
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  static const varo::test::SteppingClock clock(1369353600);
  std::string_view rest(reinterpret_cast<const char*>(bytes), size);
  const auto type = static_cast<S3OperationType>(next(rest).size());
  Dictionary auth;
  for (const char* key : {"accessKeyID", "secretAccessKey", "regionName", "objectName"}) {
    auth.set(key, next(rest));
  }
  Dictionary requestTemplate;
  for (const char* key : {"method", "Host"}) requestTemplate.set(key, next(rest));
  requestTemplate.set("AuthParameters", Dictionary{{"serviceName", next(rest)}});
  Dictionary query;
  for (std::size_t parameters = next(rest).size(); parameters > 0; --parameters) {
    const std::string key = next(rest);
    query.set(key, next(rest));
  }
  const Data payload = Data::fromBytes(std::string(rest));
  const auto signer = [&] {
    S3HMACGenerator made(auth, requestTemplate, payload, type, clock);
    if (!query.empty()) made.setQueryParameters(query);
    return made;
  };

  const std::string request = signer().prepareCanonicalRequest().value();
  const bool isKnown = type == S3OperationType::kUpload || type == S3OperationType::kDownload;
  const std::string start = (isKnown ? requestTemplate["method"].textValue() : "") + "\n/" +
                            auth["objectName"].textValue() + "\n";
  require(request.starts_with(start));
  if (!query.empty()) require(request.find("&\n", start.size()) != std::string::npos);
  const std::string authorization = signer().getAuthorizationHeader().value();
  require(signer().getAuthorizationHeader().value() == authorization);
  return 0;
}
