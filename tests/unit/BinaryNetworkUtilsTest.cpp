#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/RecordingLog.h"

#include <gmock/gmock.h>

namespace varo::binary {
namespace {

using namespace platform;
using testing::HasSubstr;

class BinaryNetworkUtilsTest : public testing::Test {
 protected:
  ~BinaryNetworkUtilsTest() override { setTransferPolicy(TransferPolicy::kCompatible); }

  struct Outcome {
    int calls = 0;
    Dictionary result;
    NetworkErrorPtr error;
  };

  static Outcome complete(const std::optional<std::string>& body, int status,
                          std::string_view operationType = {},
                          const NetworkErrorPtr& transportError = nullptr,
                          const Dictionary& headers = {{"ETag", "e1"}}) {
    auto outcome = std::make_shared<Outcome>();
    const std::weak_ptr<Outcome> released = outcome;
    auto handler = BinaryNetworkUtils::getBinaryNetworkCompletionHandler(
        [outcome](const Dictionary& result, const NetworkErrorPtr& error) {
          ++outcome->calls;
          outcome->result = result;
          outcome->error = error;
        },
        operationType);
    std::optional<Data> data;
    if (body) data = Data::fromBytes(*body);
    handler(data,
            Dictionary{{std::string(platform::kHttpResponse),
                        std::make_shared<HttpResponseInfo>(status, headers)}},
            transportError);
    handler = nullptr;
    Outcome copy = *outcome;
    outcome.reset();
    EXPECT_TRUE(released.expired());
    return copy;
  }
};

TEST_F(BinaryNetworkUtilsTest, AnswersBecomeResultsAndErrorsUnderBothPolicies) {
  const Dictionary onlyHeaders{{"response_headers", Dictionary{{"ETag", "e1"}}}};
  Dictionary jsonAndHeaders{{"a", 1}};
  jsonAndHeaders.addEntries(onlyHeaders);
  struct Case {
    std::optional<std::string> body;
    int status;
    std::string_view operationType;
    int compatibleCalls;
    Dictionary result;
    std::int64_t compatibleCode, safeCode;
    std::string safeText;
  };
  const std::string text = R"({"opstatus":"8009"})";
  const std::string minus = R"({"opstatus":-1})";
  const std::string answered = "The server responded with HTTP status ";
  const Case cases[] = {
      {"{}", 200, "", 1, onlyHeaders, 0, 0, ""},
      {"", 200, "", 1, onlyHeaders, 0, 6014, "Empty Body Received from Server"},
      {"<html>", 200, "", 1, onlyHeaders, 0, 6003, "The response is no JSON object"},
      {"[1]", 200, "", 1, onlyHeaders, 0, 6003, "The response is no JSON object"},
      {R"({"a":1})", 200, "BinaryList", 1, jsonAndHeaders, 0, 0, ""},
      {R"({"opstatus":0,"a":1})", 200, "", 1, {{"opstatus", 0}, {"a", 1}}, 0, 0, ""},
      {R"({"opstatus":"0"})", 500, "", 1, {{"opstatus", "0"}}, 0, 0, ""},
      {R"({"opstatus":null})", 200, "", 1, {{"opstatus", nullptr}}, 0, 0, ""},
      {text, 200, "", 1, {{"opstatus", "8009"}}, 6003, 6003, "unexpected opstatus : 8009"},
      {minus, 200, "", 1, {{"opstatus", -1}}, 6003, 6003, "unexpected opstatus : -1"},
      {R"({"a":1})", 400, "", 1, jsonAndHeaders, 0, 6003, answered + "400"},
      {minus, 200, "Download", 1, {{"data", Data::fromBytes(minus)}}, 0, 0, ""},
      {"", 200, "Download", 1, {{"data", Data()}}, 0, 0, ""},
      {"<>", 500, "Download", 1, {{"data", Data::fromBytes("<>")}}, 0, 6003, answered + "500"},
      {std::nullopt, 204, "", 0, {}, 0, 6014, "Empty Body Received from Server"},
      {std::nullopt, 502, "Download", 0, {}, 0, 6003, answered + "502"},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.body.value_or("no body") + " " + std::to_string(item.status));
    for (const bool safe : {false, true}) {
      setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
      const Outcome outcome = complete(item.body, item.status, item.operationType);
      ASSERT_EQ(outcome.calls, safe ? 1 : item.compatibleCalls);
      const std::int64_t code = safe ? item.safeCode : item.compatibleCode;
      ASSERT_EQ(outcome.error != nullptr, code != 0);
      if (code == 0 || !safe) {
        EXPECT_EQ(outcome.result, item.result);
      }
      if (code == 0) continue;
      EXPECT_EQ(outcome.error->domain(), "BinaryNetworkUtils");
      EXPECT_EQ(outcome.error->code(), code);
      EXPECT_EQ(outcome.error->userInfo()["NSLocalizedDescription"].textValue(), item.safeText);
      EXPECT_FALSE(outcome.error->callStack().empty());
    }
  }
}

TEST_F(BinaryNetworkUtilsTest, PartOfAFileIsNoFile) {
  const struct {
    int status;
    std::string range;
    bool compatible, safe;  // whether it is a success
  } cases[] = {
      {200, "", true, true},
      {206, "bytes 0-6/7", true, false},
      {206, "bytes 0-6/100", false, false},
      {206, "bytes 0-99/100", false, false},
      {206, "bytes 93-99/100", false, false},
      {206, "bytes 0-6/*", false, false},
      {206, "bytes */7", false, false},
      {206, "", false, false},
      {203, "", true, false},
      {304, "", true, false},
  };
  for (const auto& item : cases) {
    for (const bool safe : {false, true}) {
      SCOPED_TRACE(std::to_string(item.status) + " " + item.range);
      setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
      const Outcome outcome =
          complete("7 bytes", item.status, "Download", nullptr, {{"content-range", item.range}});
      EXPECT_EQ(outcome.error == nullptr, safe ? item.safe : item.compatible);
      if (outcome.error == nullptr) continue;
      EXPECT_EQ(outcome.error->code(), 6003);
      EXPECT_EQ(outcome.error->userInfo()["httpStatusCode"], Value(item.status));
    }
  }
}

TEST_F(BinaryNetworkUtilsTest, JsonBeyondItsLimitsIsAFailureUnderBothPolicies) {
  std::string many = "{\"a\":[0";
  for (int i = 0; i < 70'000; ++i) many += ",0";
  many += "]}";
  const std::string deep = "{\"a\":" + std::string(300, '[') + std::string(300, ']') + "}";
  for (const bool safe : {false, true}) {
    setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    EXPECT_EQ(complete(many, 200, "BinaryList").error, nullptr) << "as large as a list may be";
    for (const Outcome& outcome : {complete(many, 200), complete(deep, 200, "BinaryList")}) {
      ASSERT_NE(outcome.error, nullptr);
      EXPECT_EQ(outcome.error->code(), 6003);
      EXPECT_THAT(outcome.error->localizedDescription(),
                  testing::StartsWith("The response can't be read : "));
    }
  }
}

TEST_F(BinaryNetworkUtilsTest, CookiesAreNoneOfTheHeadersThatAnAnswerHandsOn) {
  const Outcome outcome = complete("x", 200, {}, nullptr, {{"set-COOKIE", "s"}, {"ETag", "e"}});
  EXPECT_EQ(outcome.result["response_headers"], Value(Dictionary{{"ETag", "e"}}));
}

TEST_F(BinaryNetworkUtilsTest, TransportErrorsChangeOnlyTheirDomain) {
  const auto transport = std::make_shared<const NetworkError>(
      "HttpTransport", 28, Dictionary{{"url", "u"}}, std::vector<std::string>{"frame"});
  const Outcome outcome = complete("ignored", 200, "Download", transport);
  EXPECT_EQ(outcome.calls, 1);
  EXPECT_TRUE(outcome.result.empty());
  EXPECT_EQ(outcome.error->domain(), "BinaryNetworkUtils");
  EXPECT_EQ(outcome.error->code(), 28);
  EXPECT_EQ(outcome.error->userInfo(), transport->userInfo());
  EXPECT_EQ(outcome.error->callStack(), transport->callStack());
}

TEST(BinaryNetworkUrlTest, ServiceUrlsAreCutAtServices) {
  const std::string url = "http://h/services/x/services/y";
  EXPECT_EQ(BinaryNetworkUtils::extractBaseUrl(url), "http://h/");
  EXPECT_EQ(BinaryNetworkUtils::extractBaseServiceUrl(url), "http://h/services");
  EXPECT_EQ(BinaryNetworkUtils::extractBaseUrl("http://h/"), std::nullopt);
  EXPECT_EQ(BinaryNetworkUtils::extractBaseUrl(std::nullopt), std::nullopt);
  EXPECT_EQ(BinaryNetworkUtils::extractPollingUrl(url, "/status"), "http://h/services/status");
  EXPECT_EQ(BinaryNetworkUtils::extractPollingUrl("http://h", "/status"), "(none)/status");

  const auto fileUrl = &BinaryNetworkUtils::extractFileOperationUrl;
  EXPECT_EQ(fileUrl({{"domain", "#middlewaredomain"}, {"relativepath", "/f"}}, "http://h"),
            "(none)services/f");
  EXPECT_EQ(fileUrl({}, url), "(none)(none)");
}

TEST(BinaryNetworkUrlTest, AddressesOfTheServiceStayAtTheServerThatTheyWereGivenFor) {
  const std::string own = "#middlewaredomain";
  const std::string url = "http://h:81/services/x";
  const struct {
    std::string current;
    Value domain, path;
    std::string address;  // empty: refused
  } cases[] = {
      {url, own, "/f?a=1", "http://h:81/services/f?a=1"},
      {url, own, ".evil.test/x", "http://h:81/services.evil.test/x"},
      {url, own, "@evil.test/x", "http://h:81/services@evil.test/x"},
      {url, own, nullptr, "http://h:81/services(none)"},
      {"http://h/?services", own, ".evil.test/", "http://h/?services.evil.test/"},
      {"http://h#services", own, "@evil.test/", "http://h#services@evil.test/"},
      {"http://u:p@h/services", own, "/f", "http://u:p@h/services/f"},
      {"http://services.example/services/x", own, "/f", "http://services.example/services/f"},
      {"http://services.example", own, ".evil.test/x", ""},
      {"http://services.example/x", own, "@evil.test/x", ""},
      {"http://services.example:81", own, "0/x", ""},
      {"http://services@h/x", own, "/f", ""},
      {"http://h\\services.evil/services", own, "/f", ""},
      {"http://h@i@services/services", own, "/f", ""},
      {"http://h/", own, "/f", ""},
      {url, "http://store", "/o?sig=1", "http://store/o?sig=1"},
      {url, "HTTPS://Store:443/a", "b", "HTTPS://Store:443/ab"},
      {url, "http://[::1]:8", "/o", "http://[::1]:8/o"},
      {url, "http://store", ".evil.test/x", ""},
      {url, "http://store", "@evil.test/x", ""},
      {url, "http://store", ":81@evil.test/x", ""},
      {url, "http://store", "\\@evil.test/x", ""},
      {url, "http://store", ":81/x", ""},
      {url, "http://", "evil.test/x", ""},
      {url, "http:", "//evil.test/x", ""},
      {url, "ftp://store", "/x", ""},
      {url, 5, "/x", ""},
      {url, nullptr, "/x", "(none)/x"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.current + " " + item.domain.textValue() + " " + item.path.textValue());
    const auto address = BinaryNetworkUtils::fileOperationUrlAtItsServer(
        {{"domain", item.domain}, {"relativepath", item.path}}, item.current);
    ASSERT_EQ(address.ok(), !item.address.empty());
    if (address.ok()) {
      EXPECT_EQ(*address, item.address);
    } else {
      EXPECT_EQ(address.error()->code(), 6018);
      const std::string path = item.path.textValue();
      const std::size_t host = path.find("evil");
      EXPECT_THAT(address.error()->localizedDescription(),
                  HasSubstr(host == std::string::npos ? "is refused" : path.substr(host)));
    }
  }
}

TEST(BinaryNetworkUrlTest, QueryParametersOfAnyTextAreRead) {
  const std::pair<std::string, Dictionary> cases[] = {
      {"", {}},
      {"u?", {}},
      {"u?x=1&y=2&x=3", {{"x", "3"}, {"y", "2"}}},
      {"u?a=&&b=c=d&=e&f", {{"a", ""}, {"b", "c"}, {"", "e"}, {"f", ""}}},
      {"u?a=1?b=%20&", {{"a", "1?b"}}},
      {"?a=%20&", {{"a", "%20"}}},
  };
  for (const auto& [url, params] : cases) {
    EXPECT_EQ(BinaryNetworkUtils::extractQueryParams(url), params) << url;
  }
  EXPECT_EQ(BinaryNetworkUtils::appendQueryOfUrl("u", {{"a", "%2F+ b"}, {"c&", "=#"}}),
            "u?a=%2F+%20b&c%26=%3D%23");
}

}  // namespace
}  // namespace varo::binary
