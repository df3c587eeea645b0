#include "tests/support/FileAdapterFixture.h"
#include "tests/support/RecordingLog.h"

#include <stdexcept>

namespace varo::binary {
namespace {

using Storage = BinaryFileStorageInterface;
using namespace platform;
using test::answerWith;

class FilesTest : public test::FileAdapterFixture {
 protected:
  void list(const std::optional<std::string>& criteria,
            const std::optional<Dictionary>& headers = std::nullopt) {
    Storage::getFilesWithUrl(kUrl, criteria, headers, onSuccess(), onFailure(), std::nullopt);
  }
  void update(const Dictionary& metadata, const Dictionary& headers = {}) {
    Storage::updateWithUrl(kUrl, Dictionary{{"headers", headers}, {"metadata", metadata}},
                           onSuccess(), onFailure(), Dictionary{{"ignored", 1}});
  }

  const std::string kFiles = std::string(kUrl) + "/objects/File";
};

TEST_F(FilesTest, ListSendsTheFilterAndDeliversTheAnswer) {
  const std::string body = R"({"opstatus":0,"records":[{"a":1}]})";
  const Dictionary answer{{"opstatus", 0}, {"records", Array{Dictionary{{"a", 1}}}}};
  for (int i = 0; i < 3; ++i) transport_->answer(answerWith(200, body));

  list("a eq '1'");
  Dictionary filtered = answer;
  filtered.set("requestContext", "a eq '1'");
  EXPECT_EQ(awaitNext().value, Value(filtered));
  list(std::nullopt, Dictionary{{"content-type", "text/x"}, {"A", "b"}});
  EXPECT_EQ(awaitNext().value, Value(answer));
  list("");
  EXPECT_EQ(awaitNext().value, Value(answer));

  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 3U);
  EXPECT_EQ(requests[0].method, HttpMethod::kGet);
  EXPECT_EQ(requests[0].url, kFiles + "?$filter=a%20eq%20%271%27");
  EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
  EXPECT_EQ(requests[1].url, kFiles);
  EXPECT_EQ(requests[1].header("Content-Type"), "text/x");
  EXPECT_EQ(requests[1].headers.size(), 2U);
}

TEST_F(FilesTest, UpdateSendsTheMetadataAsTheBody) {
  transport_->answer(answerWith(200, R"({"opstatus":"0","x":1})"));
  const Dictionary metadata{{"file_id", "7"}, {"name", "n"}};
  update(metadata, {{"Content-Type", "text/x"}});
  EXPECT_EQ(awaitNext().value,
            Value(Dictionary{{"opstatus", "0"}, {"x", 1}, {"requestContext", metadata}}));
  const auto request = transport_->requests().at(0);
  EXPECT_EQ(request.method, HttpMethod::kPut);
  EXPECT_EQ(request.url, kFiles);
  EXPECT_EQ(request.header("Content-Type"), "text/x");
  EXPECT_EQ(request.body, R"({"file_id":"7","name":"n"})");
}

TEST_F(FilesTest, FailuresReachTheFailureBlockInTheirShape) {
  transport_->answer(answerWith(200, R"({"opstatus":8009,"errmsg":"no"})"));
  list(std::nullopt);
  const Dictionary result{{"opstatus", 8009}, {"errmsg", "no"}};
  EXPECT_EQ(
      awaitNext().value,
      Value(Dictionary{
          {"code", "6003"},
          {"localizedDescription", "unexpected opstatus : 8009"},
          {"domain", "BinaryNetworkUtils"},
          {"userInfo", Dictionary{{"userInfo", result},
                                  {"NSLocalizedDescription", "unexpected opstatus : 8009"}}}}));
  transport_->answer(test::failWith(28, "timed out"));
  update({{"file_id", "7"}});
  EXPECT_EQ(awaitNext().value.dictionaryValue()["code"], Value("28"));
  update({{"file_id", "7"}, {"bytes", Data()}});
  EXPECT_EQ(awaitNext().block, "failure");
  EXPECT_EQ(transport_->requestCount(), 2U);
}

TEST_F(FilesTest, InvalidArgumentsFailWithoutATask) {
  const auto code = [this] { return awaitNext().value.dictionaryValue()["code"].textValue(); };
  const auto ok = onSuccess();
  const auto failed = onFailure();
  Storage::getFilesWithUrl("ftp://h", {}, {}, ok, failed, {});
  EXPECT_EQ(code(), "6018");
  Storage::uploadBinaryWithUrl(kUrl, "", {}, ok, failed, {}, {});
  EXPECT_EQ(code(), "6010");
  Storage::downloadWithURL(kUrl, {}, ok, failed, {}, {});
  EXPECT_EQ(code(), "6016");
  Storage::updateWithUrl(kUrl, {}, ok, failed, {});
  EXPECT_EQ(code(), "6022");
  EXPECT_EQ(transport_->requestCount(), 0U);
}

TEST_F(FilesTest, OperationsWithoutBlocksOnlyLog) {
  const test::RecordingLog log(LogLevel::kWarning);
  transport_->answer(answerWith(200, "{}"));
  Storage::getFilesWithUrl(kUrl, {}, {}, {}, {}, {});
  EXPECT_TRUE(test::eventually([&] { return log->lines().size() == 6; }));
}

/// A block of the application that cannot be copied.
struct Uncopyable {
  explicit Uncopyable(BinaryBlock block) : call(std::move(block)) {}
  Uncopyable(Uncopyable&&) = default;
  Uncopyable(const Uncopyable& /*other*/) { throw std::runtime_error("no copies"); }
  void operator()(const Value& value) const { call(value); }

  BinaryBlock call;
};

TEST_F(FilesTest, ExceptionInsideACallReachesItsFailureBlockBeforeItReturns) {
  const test::RecordingLog log(LogLevel::kError);
  Storage::downloadWithURL(kUrl, {}, onSuccess(), Uncopyable(onFailure()), {}, {});
  ASSERT_EQ(events().size(), 1U);
  const auto error = awaitNext().value.dictionaryValue()["error"].error();
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->localizedDescription(), "no copies");
  EXPECT_EQ(
      log->count(LogLevel::kError, "Failed to execute downloadBinary method, error : no copies"),
      1);
}

}  // namespace
}  // namespace varo::binary
