// What was given in secret shows up nowhere: a marker in every place where a secret can stand, and
// a search in everything that is logged or told of a failure.

#include "tests/support/FileAdapterFixture.h"
#include "tests/support/RecordingLog.h"

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using testing::HasSubstr;
using testing::Not;
using Storage = BinaryFileStorageInterface;

constexpr const char* kStore = "http://store";
constexpr const char* kPath = "/o?X-Amz-Signature=m4rk3r&SessionID=m4rk3r";

/// Everything that a caller can find in a value.
std::string dump(const Value& value) {
  if (const ErrorPtr error = value.error()) {
    return error->description() + error->localizedDescription() + dump(error->userInfo());
  }
  std::string text;
  if (const Array* array = value.array()) {
    for (const Value& item : *array) text += dump(item) + '\n';
  } else if (value.isDictionary()) {
    const Dictionary entries = value.dictionaryValue();
    for (const auto& entry : entries) text += entry.key + '=' + dump(entry.value) + '\n';
  } else {
    text = value.textValue();
  }
  return text;
}

class SecretsTest : public FileAdapterFixture {
 protected:
  static std::string marked(const char* name) { return std::string(name) + kMarker; }
  static Dictionary headers() {
    return {{"X-Pelmar-Authorization", marked("token")},
            {"Authorization", "Basic " + marked("basic")},
            {"Cookie", "c=" + marked("cookie")}};
  }
  static Dictionary metadata(const char* key) {
    // The identifier of a download that ends in silence stays in use until the process ends.
    static int file = 0;
    return {{key, "secret" + std::to_string(++file)}, {"security_key", marked("key")}};
  }
  /// Answers each request with success until `failing` more have come, and then with `failure`.
  void serve(int failing, const ScriptedAnswer& failure) {
    transport_->setHandler([failing, failure](const RecordedRequest& request) mutable {
      if (failing-- == 0) return failure;
      ScriptedAnswer answer = serviceAnswer(request, {{"domain", kStore}, {"relativepath", kPath}});
      answer.response->headers = {{"Set-Cookie", "s=" + marked("set")}};
      return answer;
    });
  }
  void startAll(const BinaryBlock& ok, const BinaryBlock& failed) const {
    const Dictionary ofFile{{"headers", headers()}, {"metadata", metadata("file_id")}};
    const Dictionary upload{{"headers", headers()},
                            {"metadata", metadata("file_name")},
                            {"file", Dictionary{{"rawBytes", Data::fromBytes("bytes")}}}};
    const std::string filter = "security_key eq '" + marked("filter") + "'";
    const Dictionary options{{"X-Pelmar-Authorization", marked("token")}};
    const std::function<void()> starts[] = {
        [&] { Storage::getFilesWithUrl(kUrl, filter, headers(), ok, failed, options); },
        [&] { Storage::updateWithUrl(kUrl, ofFile, ok, failed, options); },
        [&] { Storage::deleteByCriteria(kUrl, metadata("a"), headers(), ok, failed, options); },
        [&] { Storage::uploadBinaryWithUrl(kUrl, {}, upload, ok, failed, {}, options); },
        [&] { Storage::downloadWithURL(kUrl, ofFile, ok, failed, {}, options); },
    };
    for (const auto& start : starts) {
      start();
      awaitEndOfTasks();
    }
  }
};

TEST_F(SecretsTest, NoSecretIsLoggedOrToldOfAFailure) {
  const RecordingLog log(LogLevel::kTrace);
  const std::string echoed = "no access for " + marked("token") + ", Basic " + marked("basic") +
                             " to http://h/?SessionID=" + marked("sid") +
                             " with security_key eq '" + marked("filter") +
                             "'\nCookie: c=" + marked("cookie");
  const ScriptedAnswer failures[] = {
      answerWith(500, echoed, {{"Set-Cookie", "s=" + marked("set")}}),
      answerWith(200, json({{"opstatus", 8}, {"errmsg", echoed}, {"token", marked("answer")}})),
      answerWith(206, echoed, {{"set-cookie", "s=" + marked("set")}}),
      answerWith(204, std::nullopt, {{"Set-Cookie", "s=" + marked("set")}}),
  };
  for (const bool safe : {false, true}) {
    for (const ScriptedAnswer& failure : failures) {
      for (const int failing : {0, 1, 2, 1000}) {
        setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
        serve(failing, failure);
        const auto told = std::make_shared<CallLog<Value>>();
        startAll({}, [told](const Value& value) { told->add(value); });
        for (const Value& value : told->calls()) EXPECT_THAT(dump(value), Not(HasSubstr(kMarker)));
        std::filesystem::remove_all(home_ / "Downloads");
      }
    }
  }
  for (const auto& line : log->lines()) EXPECT_THAT(line.text, Not(HasSubstr(kMarker)));
}

TEST_F(SecretsTest, CredentialsStayWithTheServiceUnderTheSafePolicy) {
  for (const bool safe : {false, true}) {
    setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    serve(1000, {});
    const std::size_t before = transport_->requestCount();
    startAll(block("other"), block("other"));
    awaitEvents(safe ? 10 : 5);
    std::size_t outside = 0;
    const auto requests = transport_->requests();
    for (std::size_t i = before; i < requests.size(); ++i) {
      const bool isOwn = requests[i].url.starts_with("http://127.0.0.1/");
      if (!isOwn) ++outside;
      EXPECT_TRUE(isOwn || requests[i].url == std::string(kStore) + kPath) << requests[i].url;
      EXPECT_EQ(requests[i].header("X-Pelmar-Authorization").has_value(), isOwn);
      for (const char* name : {"Authorization", "Cookie"}) {
        EXPECT_EQ(requests[i].header(name).has_value(), isOwn || !safe) << requests[i].url;
      }
    }
    EXPECT_EQ(outside, 2U);
    std::filesystem::remove_all(home_ / "Downloads");
  }
}

}  // namespace
}  // namespace varo::binary
