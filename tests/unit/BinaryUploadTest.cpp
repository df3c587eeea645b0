#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/UploadCommiterTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryFileUploaderTask.h"
#include "tests/support/Base64.h"
#include "tests/support/FileAdapterFixture.h"
#include "tests/support/RecordingLog.h"

#include <atomic>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using testing::HasSubstr;

class UploadTest : public test::FileAdapterFixture {
 protected:
  /// Answers a creation with `uploadTemplate`, commits and chunks with success.
  void serve(const Dictionary& uploadTemplate) {
    transport_->setHandler([this, uploadTemplate](const RecordedRequest& request) {
      if (request.method == HttpMethod::kPost && request.url == kFiles) {
        return answerWith(
            200,
            json({{"opstatus", 0}, {"file_id", "f1"}, {"upload_template", json(uploadTemplate)}}));
      }
      if (request.header("X-HTTP-Method-Override")) {
        return answerWith(200, R"({"opstatus":0,"committed":true})");
      }
      ++chunks_;
      if (onChunk_) onChunk_();
      return answerWith(200, "{}",
                        {{"ETag", "\"e1\""}, {"X-PELMAR-REQUESTID", "r"}, {"Connection", "close"}});
    });
  }

  void upload(std::string_view inputType, const Dictionary& file, const Dictionary& extra = {},
              const std::optional<Dictionary>& options = std::nullopt) {
    Dictionary params{{"headers", Dictionary{{"x-pelmar-AUTHORIZATION", "secret"}, {"A", "b"}}},
                      {"metadata", Dictionary{{"file_name", "a \"b\".bin"},
                                              {"file_namespace", "ns"},
                                              {"security_key", "k"},
                                              {"relativepath", "p"},
                                              {"own", 5}}},
                      {"file", file}};
    params.addEntries(extra);
    BinaryFileStorageInterface::uploadBinaryWithUrl(kUrl, inputType, params, onSuccess(),
                                                    onFailure(), onProgress(), options);
  }
  void uploadPath(const Dictionary& extra = {}) {
    upload("UploadInputTypeLocalFilePath", {{"filePath", path_}}, extra);
  }

  /// The bodies of the chunk requests.
  std::vector<std::string> chunkBodies() const {
    std::vector<std::string> bodies;
    for (const RecordedRequest& request : transport_->requests()) {
      if (request.url != kFiles) bodies.push_back(request.body.value_or(""));
    }
    return bodies;
  }

  static Dictionary putToService() {
    return {{"domain", "#middlewaredomain"},
            {"relativepath", "/upload"},
            {"uploadMode", "binary"},
            {"method", "put"}};
  }

  const std::string kFiles = std::string(kUrl) + "/objects/File";
  const std::string path_ = home_ / "source.bin";
  std::atomic<int> chunks_{0};
  std::function<void()> onChunk_;
};

TEST_F(UploadTest, FileGoesInChunksAndIsCommitted) {
  const std::string bytes = test::sampleBytes(2'500'000);
  writeFile(path_, bytes);
  serve(putToService());
  uploadPath();
  const auto events = awaitEvents(5);
  ASSERT_EQ(events.size(), 5U);

  const auto progress = [](int chunk, bool last, std::int64_t uploaded) {
    return Value(Dictionary{{"state", last ? 2 : 1},
                            {"progressData", Dictionary{{"chunkId", chunk},
                                                        {"chunkSize", 1'048'576},
                                                        {"isLastChunk", last},
                                                        {"totalBytesToUpload", 2'500'000},
                                                        {"bytesUploadedTillNow", uploaded}}}});
  };
  EXPECT_EQ(events[0].value, Value(Dictionary{{"state", 0}}));
  EXPECT_EQ(events[1].value, progress(1, false, 1'048'576));
  EXPECT_EQ(events[2].value, progress(2, false, 2'097'152));
  EXPECT_EQ(events[3].value, progress(3, true, 2'500'000));
  EXPECT_EQ(events[4].block, "success");
  EXPECT_EQ(events[4].value,
            Value(Dictionary{{"opstatus", 0},
                             {"committed", true},
                             {"commit_properties", R"({"ETag":"\"e1\""})"},
                             {"requestContext", Dictionary{{"file_namespace", "ns"},
                                                           {"security_key", "k"},
                                                           {"own", 5},
                                                           {"file_id", "f1"}}}}));

  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 5U);
  EXPECT_EQ(requests[0].header("X-Tessel-Ignore-Mapper-Response-Filtering"), "true");
  EXPECT_EQ(requests[0].header("Content-Type"), "application/json");
  EXPECT_THAT(*requests[0].body, HasSubstr(R"("relativepath":"p")"));
  EXPECT_EQ(requests[1].url,
            "http://127.0.0.1/services/upload?chunk_sequence=1&file_namespace=ns&security_key=k");
  EXPECT_EQ(requests[1].method, HttpMethod::kPut);
  EXPECT_EQ(requests[1].header("Content-Type"), "application/octet-stream");
  EXPECT_EQ(requests[1].header("X-Pelmar-Authorization"), "secret");
  EXPECT_TRUE(*requests[1].body + *requests[2].body + *requests[3].body == bytes);
  EXPECT_EQ(requests[4].url, kFiles);
  EXPECT_EQ(requests[4].method, HttpMethod::kPut);
  EXPECT_EQ(requests[4].header("X-HTTP-Method-Override"), "PATCH");
  EXPECT_EQ(*requests[4].body,
            R"({"file_namespace":"ns","security_key":"k","own":5,"file_id":"f1",)"
            R"("commit_properties":"{\"ETag\":\"\\\"e1\\\"\"}"})");
}

TEST_F(UploadTest, ChunkPlansFollowTheSourceAndTheSettings) {
  const std::string large = test::sampleBytes(2'500'000);
  const std::string small = test::sampleBytes(10);
  constexpr std::size_t kMiB = 1'048'576;
  using Sizes = std::vector<std::size_t>;
  struct Case {
    std::string name, bytes;
    Value source;  // missing: the file
    Value chunkSize, optionsChunkSize;
    bool inChunks, safe;
    Sizes sizes;
    std::int64_t uploaded;
  };
  const Value largeData(Data::fromBytes(large));
  const Value smallData(Data::fromBytes(small));
  const Case cases[] = {
      {"raw", large, largeData, 0, {}, true, false, {kMiB, kMiB, 2'500'000}, 4'597'152},
      {"raw, safe", large, largeData, {}, {}, true, true, {kMiB, kMiB, 402'848}, 2'500'000},
      {"base64", small, base64Of(small), "4", {}, true, true, {4, 4, 2}, 10},
      {"raw whole", small, smallData, 4, {}, false, false, {10}, 10},
      {"exact end", small, {}, 5, {}, true, false, {5, 5}, 10},
      {"not in chunks", small, {}, 4, {}, false, false, {10}, 10},
      {"options win", small, {}, 4, 6, true, false, {6, 4}, 10},
      {"unusable options", small, {}, 4, -1, true, false, {4, 4, 2}, 10},
      {"largest number", small, smallData, INT64_MAX, {}, true, false, {10}, 10},
  };
  std::size_t events = 0;
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    setTransferPolicy(item.safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    Dictionary uploadTemplate = putToService();
    uploadTemplate.set("chunkupload", item.inChunks ? "true" : "false");
    serve(uploadTemplate);
    const std::size_t before = chunkBodies().size();
    const Dictionary extra{{"chunkSize", item.chunkSize}};
    const Dictionary options{{"chunkSize", item.optionsChunkSize}};
    const bool isFile = item.source.isMissing();
    writeFile(path_, item.bytes);
    upload(isFile ? "UploadInputTypeLocalFilePath" : "UploadInputTypeRawBytes",
           {{isFile ? "filePath" : "rawBytes", isFile ? Value(path_) : item.source}}, extra,
           options);
    events += item.sizes.size() + 2;
    const auto all = awaitEvents(events);
    EXPECT_EQ(all.back().block, "success");
    const auto& last = all[all.size() - 2].value;
    EXPECT_EQ(last.dictionaryValue()["progressData"].dictionaryValue()["bytesUploadedTillNow"],
              Value(item.uploaded));
    const auto bodies = chunkBodies();
    Sizes sizes;
    for (std::size_t i = before; i < bodies.size(); ++i) sizes.push_back(bodies[i].size());
    EXPECT_EQ(sizes, item.sizes);
    EXPECT_TRUE(item.bytes.ends_with(bodies.back()));
  }
}

TEST_F(UploadTest, OutsideStoreSeesNeitherTokenNorQueryAndCannotTakeOver) {
  writeFile(path_, "bytes");
  writeFile(home_ / "private", "private");
  transport_->setHandler([this](const RecordedRequest& request) {
    const Dictionary takeOver{{"file", Dictionary{{"filePath", home_ / "private"}}},
                              {"callback", "x"},
                              {"isLastChunk", false},
                              {"options", Dictionary{{"chunkSize", 1}}}};
    Dictionary answer = takeOver;
    if (request.url == kFiles && request.method == HttpMethod::kPost) {
      answer.set("upload_template", json({{"domain", "http://store"},
                                          {"relativepath", "/o?sig=1"},
                                          {"uploadMode", "multipart"},
                                          {"method", "post"}}));
    }
    return answerWith(200, json(answer), {{"etag", "e"}});
  });
  uploadPath({{"chunkSize", 3}});
  const auto events = awaitEvents(4);
  EXPECT_EQ(events.back().block, "success");
  const auto requests = transport_->requests();
  ASSERT_EQ(requests.size(), 4U);
  EXPECT_EQ(requests[1].url, "http://store/o?sig=1");
  EXPECT_EQ(requests[1].header("A"), "b");
  EXPECT_EQ(requests[1].header("X-Pelmar-Authorization"), std::nullopt);
  EXPECT_EQ(requests[1].header("X-Tessel-Ignore-Mapper-Response-Filtering"), std::nullopt);
  EXPECT_THAT(*requests[1].header("Content-Type"),
              testing::StartsWith("multipart/form-data; boundary="));
  EXPECT_THAT(*requests[1].body, HasSubstr("Content-Type: application/octet-stream\r\n"
                                           "Content-Disposition: form-data; name=\"data\"; "
                                           "filename=\"a %22b%22.bin\"\r\n\r\nbyt\r\n"));
  EXPECT_THAT(*requests[2].body, HasSubstr("\r\n\r\nes\r\n"));
}

TEST_F(UploadTest, FileThatIsReplacedOrGrowsIsUploadedAsItWas) {
  writeFile(path_, "0123456789");
  serve(putToService());
  onChunk_ = [this] {
    if (chunks_ == 1) std::ofstream(path_, std::ios::app) << "grown";
    if (chunks_ != 2) return;
    writeFile(home_ / "other", "another file");
    std::filesystem::rename(home_ / "other", path_);
  };
  uploadPath({{"chunkSize", 4}});
  EXPECT_EQ(awaitEvents(5).back().block, "success");
  std::string sent;
  for (const std::string& body : chunkBodies()) sent += body;
  EXPECT_EQ(sent, "0123456789");
}

TEST_F(UploadTest, EveryStepEndsTheUploadOnceWhereItIsNotSilence) {
  constexpr std::int64_t kSuccess = -1;
  constexpr std::int64_t kAny = -2;  // requests without bytes, of which nothing is promised
  writeFile(path_, "0123456789");
  const auto created = [](Dictionary uploadTemplate) {
    return answerWith(200, json({{"upload_template", json(uploadTemplate)}}));
  };
  const auto createdWith = [&](const char* mode, const char* method) {
    Dictionary changed = putToService();
    changed.addEntries({{"uploadMode", mode}, {"method", method}});
    return created(changed);
  };
  const Dictionary elsewhere{{"domain", "http://store"}, {"relativepath", "@evil.test/"}};
  const ScriptedAnswer foreignCommit = answerWith(
      200,
      json({{"upload_template", json(putToService())}, {"commitUrl", "http://evil.test/commit"}}));
  const ScriptedAnswer ok = answerWith(200, "{}");
  const ScriptedAnswer none = answerWith(204, std::nullopt);
  const ScriptedAnswer empty = answerWith(200, "");
  const ScriptedAnswer login = answerWith(200, "<html>Sign in</html>");
  const ScriptedAnswer down = test::failWith(7, "connection refused");
  const ScriptedAnswer refused = answerWith(200, R"({"opstatus":8})");
  const ScriptedAnswer page = answerWith(500, "x");
  const ScriptedAnswer junk = answerWith(200, R"({"upload_template":"{"})");
  const ScriptedAnswer start = created(putToService());
  const struct {
    std::string name;
    std::vector<ScriptedAnswer> answers;
    std::int64_t compatibleCode, safeCode;  // of the failure, 0 for silence
    std::size_t chunks;                     // that were reported before it
  } cases[] = {
      {"creation refused", {down}, 7, 7, 0},
      {"creation failed", {refused}, 6003, 6003, 0},
      {"creation without body", {none}, 0, 6014, 0},
      {"creation 500", {page}, 0, 6003, 0},
      {"no template", {ok}, 0, 6009, 0},
      {"foreign path", {created(elsewhere)}, 6018, 6018, 0},
      {"foreign commit", {foreignCommit}, 6018, 6018, 0},
      {"bad template", {junk}, 1, 1, 0},
      {"unknown method", {createdWith("binary", "patch")}, 0, 6012, 0},
      {"unknown mode", {createdWith("pigeon", "put")}, kAny, 6012, 0},
      {"parts by put", {createdWith("multipart", "put")}, kAny, 6012, 0},
      {"bytes by post", {createdWith("binary", "post")}, kAny, 6012, 0},
      {"second chunk refused", {start, ok, down}, 7, 7, 1},
      {"second chunk failed", {start, ok, refused}, 6003, 6003, 1},
      {"commit failed", {start, ok, ok, ok, refused}, 6003, 6003, 3},
      {"commit without body", {start, ok, ok, ok, none}, 0, kSuccess, 3},
      {"commit of no bytes", {start, ok, ok, ok, empty}, kSuccess, kSuccess, 3},
      {"commit a page", {start, ok, ok, ok, login}, kSuccess, 6003, 3},
      {"creation a page", {login}, 0, 6003, 0},
      {"creation of no bytes", {empty}, 0, 6014, 0},
  };
  std::size_t events = 0;
  for (const auto& item : cases) {
    for (const bool safe : {false, true}) {
      if (!safe && item.compatibleCode == kAny) continue;
      SCOPED_TRACE(item.name + (safe ? ", safe" : ", compatible"));
      setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
      const std::size_t requests = transport_->requestCount();
      for (const ScriptedAnswer& answer : item.answers) transport_->answer(answer);
      uploadPath({{"chunkSize", 4}});
      const std::int64_t code = safe ? item.safeCode : item.compatibleCode;
      events += 1 + item.chunks + (code != 0 ? 1 : 0);
      const auto all = awaitEvents(events);
      awaitEndOfTasks();
      EXPECT_EQ(events, this->events().size());
      EXPECT_EQ(transport_->requestCount() - requests, item.answers.size());
      if (code == 0) continue;
      const Dictionary failure = all.back().value.dictionaryValue();
      EXPECT_EQ(all.back().block, code == kSuccess ? "success" : "failure");
      if (code == kSuccess) continue;
      EXPECT_EQ(failure["code"], Value(std::to_string(code)));
    }
  }
}

TEST_F(UploadTest, FileThatGoesBeforeItsFirstChunkIsAFailure) {
  writeFile(path_, "bytes");
  transport_->hold();
  transport_->answer(answerWith(200, json({{"upload_template", json(putToService())}})));
  uploadPath();
  awaitHeld(1);
  std::filesystem::remove(path_);
  transport_->releaseAll();
  const Dictionary failure = awaitEvents(2).back().value.dictionaryValue();
  EXPECT_EQ(failure["code"], Value("6007"));
  EXPECT_EQ(failure["domain"], Value("UploadError"));
  EXPECT_EQ(failure["localizedDescription"],
            Value("Unable to upload file - unknown error while uploading: Opening " + path_ +
                  ": No such file or directory"));
}

TEST_F(UploadTest, SettingsThatAreNotWhatTheyShouldBeAreToldUnderTheSafePolicy) {
  writeFile(path_, "bytes");
  serve(putToService());
  const RecordingLog log(LogLevel::kWarning);
  const char* warning = "Nothing reads \"chunksize\" in the options; did you mean \"chunkSize\"?";
  for (const bool safe : {false, true}) {
    setTransferPolicy(safe ? TransferPolicy::kSafe : TransferPolicy::kCompatible);
    upload("UploadInputTypeLocalFilePath", {{"filePath", path_}}, {{"chunkSize", "9M"}},
           Dictionary{{"chunksize", 4}});
    if (!safe) {
      EXPECT_EQ(awaitEvents(3).back().block, "success");
    } else {
      EXPECT_EQ(awaitNext().value.dictionaryValue()["code"], Value("6011"));
    }
    EXPECT_EQ(log->count(LogLevel::kWarning, warning), safe ? 1 : 0);
  }
  upload("UploadInputTypeLocalFilePath", {{"filePath", path_}}, {},
         Dictionary{{"chunkSize", "1M"}});
  EXPECT_THAT(awaitNext().value.dictionaryValue()["localizedDescription"].textValue(),
              testing::EndsWith("chunkSize is not wholly a number : 1M"));
  EXPECT_THAT(log->lines(), testing::Contains(testing::Field(
                                &RecordingSink::Line::text,
                                testing::StartsWith("Upload chunkSize validation failed : "))));
}

TEST_F(UploadTest, TaskWithoutChunkSizeIsAFailureAndNotADivisionByZero) {
  transport_->answer(answerWith(200, json({{"upload_template", json(putToService())}})));
  const auto task = std::make_shared<BinaryFileUploaderTask>();
  task->setInputContext(
      {{"url", kUrl},
       {"uploadParams", Dictionary{{"file", Dictionary{{"rawBytes", Data::fromBytes("x")}}}}},
       {"options", Dictionary{{"chunkSize", 0}}},
       {"callback", callback()}});
  task->start();
  EXPECT_EQ(awaitEvents(2).back().value.dictionaryValue()["code"], Value("6012"));
}

TEST_F(UploadTest, CommitThatIsNotJsonIsReportedAndStillSent) {
  const struct {
    Value properties;
    std::size_t failures;
    std::string body;
  } cases[] = {{Dictionary{{"bytes", Data()}}, 2, ""},
               {"text", 1, R"({"commit_properties":"text"})"}};
  for (const auto& item : cases) {
    const std::size_t before = events().size();
    transport_->answer(answerWith(200, R"({"opstatus":0})"));
    auto task = std::make_shared<UploadCommiterTask>();
    task->setInputContext(
        {{"commitUrl", "http://h/"},
         {"uploadParams",
          Dictionary{{"metadata", Dictionary{{"commit_properties", item.properties}}}}},
         {"callback", callback()}});
    task->start();
    task.reset();
    awaitEvents(before + item.failures + 1);
    awaitEndOfTasks();
    EXPECT_EQ(transport_->requests().back().body, item.body);
  }
}

}  // namespace
}  // namespace varo::binary
