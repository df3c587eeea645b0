#include "Binary/Binary/Utils/S3HMACGenerator.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SteppingClock.h"
#include "tests/support/TemporaryDirectory.h"

#include <random>

// Signatures beside those of an independent implementation, botocore, which is run once for all.

namespace varo::binary {
namespace {

using namespace platform;

constexpr int kCases = 300;
constexpr int kNoBotocore = 77;      // the script's own
constexpr int kNoInterpreter = 127;  // of `env`

/// Whatever may stand in an object's name, but "?" and "#", which end a path.
const std::vector<std::string> kNameCharacters = [] {
  std::vector<std::string> all = {"//",       "..",           "%2F",
                                  "\xC3\xA9", "\xE6\xBC\xA2", "\xF0\x9F\x98\x80"};
  for (const char c : std::string_view("abZ09 /%+&=~-_.'()!*,;:@$[]{|\\")) all.emplace_back(1, c);
  return all;
}();
const std::vector<std::string> kKeyCharacters = {"a", "K", "7", "/", "+", "=", "\xC3\xBC"};
const std::vector<std::string> kScopeCharacters = {"u", "s", "-", "1", "2"};

class RandomInput {
 public:
  std::size_t number(std::size_t least, std::size_t greatest) {
    return std::uniform_int_distribution<std::size_t>(least, greatest)(random_);
  }
  std::string text(const std::vector<std::string>& characters, std::size_t least,
                   std::size_t greatest) {
    std::string result;
    for (std::size_t n = number(least, greatest); n > 0; --n) {
      result += characters[number(0, characters.size() - 1)];
    }
    return result;
  }

 private:
  std::mt19937_64 random_{20240229};  // the same cases every time, so that a failure stays
};

struct Case {
  Dictionary input;  // as the script takes it
  Dictionary ours;
};

Case makeCase(RandomInput& random) {
  const bool isUpload = random.number(0, 1) == 0;
  const std::string bytes = isUpload ? random.text(kNameCharacters, 0, 2000) : "";
  const auto second = static_cast<std::int64_t>(random.number(0, 4'102'444'799));  // until 2099
  Dictionary input{
      {"isUpload", isUpload},
      {"method", isUpload ? "PUT" : "GET"},
      {"Host", random.text(kScopeCharacters, 1, 20) + ".example:9000"},
      {"objectName", random.text(kNameCharacters, 0, 40)},
      {"bucketName", random.text(kScopeCharacters, 1, 9)},
      {"accessKeyID", random.text(kKeyCharacters, 1, 30)},
      {"secretAccessKey", random.text(kKeyCharacters, 1, 100)},
      {"regionName", random.text(kScopeCharacters, 1, 12)},
      {"serviceName", random.text(kScopeCharacters, 1, 4)},
      {"sessionToken", ""},
      {"query", Dictionary{}},
      {"headers", isUpload ? Dictionary{{"Content-Type", "binary/octet-stream"}} : Dictionary{}},
      {"payload", platform::hexEncode(bytes)}};
  const S3OperationType type = isUpload ? S3OperationType::kUpload : S3OperationType::kDownload;
  Dictionary requestTemplate = input;
  requestTemplate.set("AuthParameters", Dictionary{{"serviceName", input["serviceName"]}});
  const test::SteppingClock clock(second);
  S3HMACGenerator signer(input, requestTemplate, Data::fromBytes(bytes), type, clock);
  input.set("time", signer.getTimeStamp());
  const auto headers = signer.getRequestHeaders(type);
  EXPECT_TRUE(headers.ok());
  Dictionary ours;  // with names as the script gives them
  for (const auto& header : *headers) {
    ours.set(platform::lowerCase(header.key), header.value.textValue());
  }
  return {input, ours};
}

TEST(SignatureTest, RandomRequestsAreSignedAsAnIndependentImplementationSignsThem) {
  RandomInput random;
  std::vector<Case> cases;
  Array inputs;
  for (int i = 0; i < kCases; ++i) {
    cases.push_back(makeCase(random));
    inputs.append(cases.back().input);
  }
  const test::TemporaryDirectory directory;
  // The distribution's interpreter: another one on the path may have another botocore, or none.
  test::ChildProcess botocore({.program = "/usr/bin/python3",
                               .arguments = {"-I", "-B", VARO_BOTOCORE_SCRIPT},
                               .environment = {},
                               .directory = directory.path(),
                               .input = platform::json::serialize(inputs).value()});
  const int status = botocore.wait();
  if (status == kNoBotocore || status == kNoInterpreter) {
    GTEST_SKIP() << "python3-botocore is not installed: no signature was compared";
  }
  ASSERT_EQ(status, 0) << botocore.errors();
  const auto answer = platform::json::parse(botocore.output());
  ASSERT_TRUE(answer.ok() && answer->isArray());
  ASSERT_EQ(answer->array()->size(), cases.size());
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(Value(cases[i].ours), (*answer->array())[i]) << Value(cases[i].input).description();
  }
}

}  // namespace
}  // namespace varo::binary
