#include "tests/support/FileAdapterFixture.h"

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using namespace testing;

class DownloadTest : public test::FileAdapterFixture {
 protected:
  void download(const std::string& fileId = "f1",
                const std::optional<Dictionary>& options = std::nullopt) {
    const Dictionary params{
        {"headers", Dictionary{{"X-PELMAR-Authorization", "secret"}, {"A", "b"}}},
        {"metadata", Dictionary{{"file_id", fileId}, {"file_namespace", "ns"}}}};
    BinaryFileStorageInterface::downloadWithURL(kUrl, params, onSuccess(), onFailure(),
                                                onProgress(), options);
  }

  static Dictionary record(const Value& name) {
    return {
        {"file_name", name},
        {"download_template", json({{"domain", "#middlewaredomain"}, {"relativepath", "/get"}})}};
  }
  void answerLookUp(Array records) {
    transport_->answer(answerWith(200, json({{"opstatus", 0}, {"records", std::move(records)}})));
  }

  /// The error under "Errors" in a download's failure.
  static platform::ErrorPtr errorIn(const Value& failure) {
    const Dictionary error = failure.dictionaryValue()["error"].dictionaryValue();
    const Array* errors = error["Errors"].array();
    return errors != nullptr && errors->size() == 1 ? (*errors)[0].error() : nullptr;
  }
  [[nodiscard]] bool nothingIsStored() const {
    return !std::filesystem::exists(downloads_) || std::filesystem::is_empty(downloads_);
  }

  const std::string downloads_ = home_ / "Downloads";
};

TEST_F(DownloadTest, FileIsLookedUpFetchedAndStored) {
  answerLookUp({record("a.bin")});
  transport_->answer(answerWith(200, "the bytes"));
  download();
  const Event event = awaitNext();
  EXPECT_EQ(event.block, "success");
  EXPECT_EQ(event.value,
            Value(Dictionary{
                {"opstatus", 0},
                {"file_name", "a.bin"},
                {"filePath", downloads_ + "/a.bin"},
                {"requestContext", Dictionary{{"file_id", "f1"}, {"file_namespace", "ns"}}}}));
  EXPECT_EQ(contentOf(downloads_ + "/a.bin"), "the bytes");
  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 2U);
  EXPECT_THAT(requests[0].url, HasSubstr("/objects/File?$filter=file_id%20eq%20%27f1%27%20and%20"
                                         "file_namespace%20eq%20%27ns%27"));
  EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
  EXPECT_EQ(requests[1].url,
            "http://127.0.0.1/services/get?file_id=f1&file_namespace=ns&type=bytes");
  EXPECT_EQ(requests[1].header("X-Pelmar-Authorization"), "secret");
}

TEST_F(DownloadTest, LookUpKeepsItsAnswerWhichHasNoSayInWhereTheBytesComeFrom) {
  const Dictionary kept{{"url", "http://evil.test/services"},
                        {"headers", Dictionary{{"A", "evil"}}},
                        {"settings", 1},
                        {"file", "f"},
                        {"uploadParams", 2}};
  Dictionary answer{{"records", Array{record("a.bin")}}, {"options", 3}, {"callback", 4}};
  answer.addEntries(kept);
  transport_->answer(answerWith(200, json(answer)));
  transport_->answer(answerWith(200, "bytes"));
  download();
  const Event event = awaitNext();
  ASSERT_EQ(event.block, "success");
  const Dictionary result = event.value.dictionaryValue();
  for (const auto& entry : kept) EXPECT_EQ(result[entry.key], entry.value) << entry.key;
  EXPECT_FALSE(result.contains("options"));
  EXPECT_FALSE(result.contains("callback"));
  const auto request = transport_->requests().at(1);
  EXPECT_THAT(request.url, StartsWith("http://127.0.0.1/services/get?"));
  EXPECT_EQ(request.header("A"), "b");
}

TEST_F(DownloadTest, FileThatIsThereCountsUnlessItsSizeOrTheCallerSaysOtherwise) {
  std::filesystem::create_directory(downloads_);
  const Dictionary ofServer{{"forceDownload", true}};  // which has no say in it
  const struct {
    Value size, force;
    std::string safe;  // what is there afterwards; under the compatible policy always the old one
  } cases[] = {{{}, {}, "old"},      {{}, "yes", ""},    {3, {}, "old"},   {"3", {}, "old"},
               {4, {}, "whole"},     {"5", {}, "whole"}, {0, {}, "whole"}, {"3 bytes", {}, "old"},
               {nullptr, {}, "old"}, {{}, true, "new"}};
  for (const auto& item : cases) {
    for (const bool safe : {false, true}) {
      SCOPED_TRACE(item.size.textValue() + item.force.textValue() + (safe ? ", safe" : ""));
      setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
      const std::string content = safe ? item.safe : "old";
      writeFile(downloads_ + "/a", "old");
      Dictionary sized = record("a");
      sized.set("file_size", item.size);
      transport_->answer(answerWith(200, json({{"records", Array{sized}}, {"options", ofServer}})));
      if (content != "old") transport_->answer(answerWith(200, content));
      download("f1", Dictionary{{"forceDownload", item.force}});
      const Event event = awaitNext();
      EXPECT_EQ(event.block, "success");
      EXPECT_EQ(event.value.dictionaryValue()["filePath"], Value(downloads_ + "/a"));
      EXPECT_FALSE(event.value.dictionaryValue().contains("options"));
      EXPECT_EQ(contentOf(downloads_ + "/a"), content);
    }
  }
}

TEST_F(DownloadTest, NamesThatStayInTheDirectoryAreTheirText) {
  std::filesystem::create_directories(downloads_ + "/sub");
  const std::pair<Value, std::string> names[] = {
      {7, "7"}, {1.5, "1.5"}, {"./dot", "dot"}, {"sub/./dot", "sub/dot"}, {".hidden", ".hidden"}};
  for (const auto& [name, file] : names) {
    answerLookUp({record(name)});
    transport_->answer(answerWith(200, "bytes"));
    download();
    const Event event = awaitNext();
    ASSERT_EQ(event.block, "success") << file;
    EXPECT_EQ(event.value.dictionaryValue()["file_name"], Value(name.textValue()));
    EXPECT_EQ(contentOf(downloads_ + "/" + file), "bytes");
  }
}

TEST_F(DownloadTest, RecordsThatCannotBeDownloadedFailBeforeAnythingIsFetched) {
  const std::string noRecord =
      "5004 Binary record does not exist. Hence cannot create download task: binary records "
      "dosen't exist";
  const std::string invalid = "6016 Unable to download file - Invalid parameter value: ";
  std::vector<std::pair<Value, std::string>> cases{
      {{}, noRecord},
      {Array{}, noRecord},
      {Array{record("a"), record("a")},
       "5001 Invalid State For Download Task Creation: binary records incorrect state"},
      {Array{Dictionary{}}, invalid},
      {Array{5}, invalid},
      {Array{record(nullptr)}, invalid},
      {Array{record(Array{"a"})}, invalid},
  };
  for (const std::string name : {"", ".", "./", "..", "./../x", "../x", "/x", "a/../../x", "..\\x",
                                 "%2e%2e%2fx", "a%2f..%2f..%2fx"}) {
    cases.emplace_back(Array{record(name)}, invalid + name);
  }
  for (const auto& [records, text] : cases) {
    SCOPED_TRACE(text);
    transport_->answer(answerWith(200, json({{"opstatus", 0}, {"records", records}})));
    download();
    const Event event = awaitNext();
    EXPECT_EQ(event.block, "failure");
    const auto error = errorIn(event.value);
    ASSERT_NE(error, nullptr);
    EXPECT_EQ(error->domain(), "DownloadError");
    EXPECT_EQ(std::to_string(error->code()) + " " + error->localizedDescription(), text);
    EXPECT_EQ(error->userInfo()["file_id"], Value("f1"));
  }
  EXPECT_EQ(transport_->requestCount(), cases.size());
  EXPECT_TRUE(nothingIsStored());
}

TEST_F(DownloadTest, FetchAndStoreFailuresFollowThePolicy) {
  const struct {
    std::string name;
    ScriptedAnswer answer;
    std::string compatible;
    std::int64_t safeCode;
  } cases[] = {
      {"missing/sub", answerWith(200, "body"), "success", 6002},
      {std::string(300, 'n'), answerWith(200, "body"), "success", 6002},
      {"page", answerWith(503, "body"), "success", 6003},
      {"lost", failWith(18, "cut short"), "failure", 18},
  };
  for (const auto& item : cases) {
    for (const bool safe : {false, true}) {
      SCOPED_TRACE(item.name + (safe ? ", safe" : ", compatible"));
      setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
      std::filesystem::remove_all(downloads_);
      answerLookUp({record(item.name)});
      transport_->answer(item.answer);
      download();
      const Event event = awaitNext();
      ASSERT_EQ(event.block, safe ? "failure" : item.compatible);
      if (event.block == "success") {
        EXPECT_EQ(event.value.dictionaryValue()["filePath"], Value(downloads_ + "/" + item.name));
      } else {
        EXPECT_EQ(errorIn(event.value)->code(), item.safeCode);
        EXPECT_TRUE(nothingIsStored());
      }
    }
  }
}

TEST_F(DownloadTest, FailedLookUpIsReportedInBothShapes) {
  transport_->answer(answerWith(200, R"({"opstatus":3})"));
  download();
  auto events = awaitEvents(2);
  if (events[0].value.dictionaryValue().contains("error")) std::swap(events[0], events[1]);
  EXPECT_EQ(events[0].value.dictionaryValue()["code"], Value("6003"));
  EXPECT_EQ(events[0].value.dictionaryValue()["domain"], Value("BinaryNetworkUtils"));
  ASSERT_NE(errorIn(events[1].value), nullptr);
  EXPECT_EQ(errorIn(events[1].value)->code(), 6003);
}

TEST_F(DownloadTest, OneFileIsDownloadedOnceAtATime) {
  transport_->hold();
  answerLookUp({record("a")});
  constexpr std::size_t kThreads = 8;
  {
    std::vector<std::jthread> threads;
    for (std::size_t i = 0; i < kThreads; ++i) threads.emplace_back([this] { download(); });
  }
  const auto refused = awaitEvents(kThreads - 1);
  const char* inQueue = "File Download already in queue, Download not started";
  const Dictionary refusal{{"code", "10002"},
                           {"localizedDescription", inQueue},
                           {"domain", "DownloadError"},
                           {"userInfo", Dictionary{{"NSLocalizedDescription", inQueue}}}};
  for (const Event& event : refused) EXPECT_EQ(event.value, Value(refusal));
  answerLookUp({});
  download("f2");  // another file is not in its way
  awaitHeld(2);
  transport_->answer(answerWith(200, "bytes"));
  transport_->releaseAll();
  awaitEvents(kThreads + 1);

  // Either end makes room for the next.
  answerLookUp({record("a")});
  download();
  EXPECT_EQ(awaitNext().block, "success");
  answerLookUp({record("a")});
  download("f2");
  EXPECT_EQ(awaitNext().block, "success");
}

TEST_F(DownloadTest, DownloadThatEndsInSilenceKeepsItsIdentifierButNoMemory) {
  // The identifier stays in use until the process ends, so each run of this test needs its own.
  static int run = 0;
  const std::string fileId = "silent" + std::to_string(++run);
  transport_->answer(answerWith(204, std::nullopt));
  download(fileId);
  awaitEndOfTasks();
  download(fileId);
  EXPECT_EQ(awaitNext().value.dictionaryValue()["code"], Value("10002"));
}

TEST_F(DownloadTest, TemplateThatIsNotJsonEndsInAFailedRequest) {
  answerLookUp({Dictionary{{"file_name", "a"}, {"download_template", "{"}}});
  download();
  EXPECT_EQ(awaitNext().block, "failure");
  EXPECT_EQ(transport_->requests().at(1).url, "");
}

}  // namespace
}  // namespace varo::binary
