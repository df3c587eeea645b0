#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/Await.h"
#include "tests/support/Files.h"
#include "tests/support/RecordingLog.h"
#include "tests/support/TemporaryDirectory.h"

#include <future>
#include <latch>

namespace varo::binary {
namespace {

using Storage = BinaryFileStorageInterface;
using namespace platform;
using sandbox::SandboxServer;
using test::eventually;
using namespace testing;

/// How one operation ended.
struct Outcome {
  bool success = false;
  Value value;
};

/// The identifier that the service gave an uploaded file.
std::string fileIdOf(const Outcome& uploaded) {
  return uploaded.value.dictionaryValue()["requestContext"]
      .dictionaryValue()["file_id"]
      .textValue();
}

/// The blocks of one operation, and its end to wait for.
class Operation {
 public:
  [[nodiscard]] BinaryBlock onSuccess() const { return settle(true); }
  [[nodiscard]] BinaryBlock onFailure() const { return settle(false); }
  [[nodiscard]] Outcome wait() const {
    auto end = end_->get_future();
    if (end.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
      ADD_FAILURE() << "an operation did not end";
      return {};
    }
    return end.get();
  }

 private:
  [[nodiscard]] BinaryBlock settle(bool success) const {
    return [end = end_, success](const Value& value) { end->set_value({success, value}); };
  }
  std::shared_ptr<std::promise<Outcome>> end_ = std::make_shared<std::promise<Outcome>>();
};

Dictionary templateKind(const char* domain, const char* mode, const char* method, bool chunked) {
  return {{"domain", domain}, {"uploadMode", mode}, {"method", method}, {"chunkupload", chunked}};
}

class FileAdapterTest : public testing::Test {
 protected:
  FileAdapterTest() {
    platform::UserDirectories::install(platform::UserDirectories::below(home_.path()));
    Storage::initialize();
    liveTasks_ = VSTask::liveCount();
    const auto problem = server_.start();
    EXPECT_FALSE(problem) << (problem ? problem->message : "");
    setTransferPolicy(TransferPolicy::kSafe);
    // What these tests provoke on purpose is not worth a warning each.
    setLogLevel(platform::LogLevel::kOff);
  }
  ~FileAdapterTest() override {
    EXPECT_TRUE(eventually([this] { return VSTask::liveCount() == liveTasks_; }));
    server_.stop();
    platform::UserDirectories::install(nullptr);
    setTransferPolicy(TransferPolicy::kCompatible);
    setLogLevel(platform::LogLevel::kWarning);
  }

  static void setLogLevel(platform::LogLevel level) {
    platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(level);
  }

  void startUpload(
      const Operation& operation, const Dictionary& file, const std::string& name,
      const Value& kind = {}, const BinaryBlock& onProgress = [](const Value&) {}) {
    const bool isPath = file.contains("filePath");
    Storage::uploadBinaryWithUrl(
        server_.url(), isPath ? "UploadInputTypeLocalFilePath" : "UploadInputTypeRawBytes",
        Dictionary{{"headers", headers_},
                   {"metadata", Dictionary{{"file_name", name}, {"sandbox_template", kind}}},
                   {"file", file},
                   {"chunkSize", 64 * 1024}},
        operation.onSuccess(), operation.onFailure(), onProgress, {});
  }
  Outcome upload(const Dictionary& file, const std::string& name, const Value& kind = {}) {
    const Operation operation;
    startUpload(operation, file, name, kind);
    return operation.wait();
  }
  Outcome download(const std::string& fileId) {
    const Operation operation;
    Storage::downloadWithURL(
        server_.url(),
        Dictionary{{"headers", headers_}, {"metadata", Dictionary{{"file_id", fileId}}}},
        operation.onSuccess(), operation.onFailure(), {}, {});
    return operation.wait();
  }
  Outcome list(const std::string& criteria) {
    const Operation operation;
    Storage::getFilesWithUrl(server_.url(), criteria, headers_, operation.onSuccess(),
                             operation.onFailure(), {});
    return operation.wait();
  }
  [[nodiscard]] std::string makeFile(const std::string& name, const std::string& bytes) const {
    test::writeFile(home_ / name, bytes);
    return home_ / name;
  }

  const test::TemporaryDirectory home_;
  const test::TemporaryDirectory data_;
  SandboxServer server_{[this] {
    sandbox::SandboxOptions options;
    options.dataDirectory = data_.path();
    return options;
  }()};
  Dictionary headers_;

 private:
  std::size_t liveTasks_ = 0;
};

TEST_F(FileAdapterTest, EveryTemplateKindRoundTripsByteIdentical) {
  headers_.set("x-pelmar-AUTHORIZATION", "token-of-the-service");
  const std::pair<const char*, Dictionary> kinds[] = {
      {"service-binary", templateKind("service", "binary", "put", true)},
      {"service-multipart", templateKind("service", "multipart", "post", true)},
      {"service-whole", templateKind("service", "binary", "put", false)},
      {"store-binary", templateKind("store", "binary", "put", false)},
      {"store-multipart", templateKind("store", "multipart", "post", false)},
      {"store-chunked", templateKind("store", "binary", "put", true)},
  };
  const std::size_t sizes[] = {1, 64 * 1024, 64 * 1024 + 1, 2'500'000};
  for (const auto& [kindName, kind] : kinds) {
    for (const std::size_t size : sizes) {
      // Raw bytes of the compatible policy are cut in another way.
      for (const std::string_view source : {"-file-", "-raw-", "-raw-compatible-"}) {
        const bool raw = source != "-file-";
        setTransferPolicy(source == "-raw-compatible-" ? TransferPolicy::kCompatible
                                                       : TransferPolicy::kSafe);
        const std::string name = kindName + std::string(source) + std::to_string(size);
        SCOPED_TRACE(name);
        const std::string bytes = test::sampleBytes(size);
        const Dictionary file = raw ? Dictionary{{"rawBytes", Data::fromBytes(bytes)}}
                                    : Dictionary{{"filePath", makeFile(name, bytes)}};
        const Outcome uploaded = upload(file, name, kind);
        ASSERT_TRUE(uploaded.success) << uploaded.value.description();
        const Outcome downloaded = download(fileIdOf(uploaded));
        ASSERT_TRUE(downloaded.success) << downloaded.value.description();
        const std::string path = downloaded.value.dictionaryValue()["filePath"].textValue();
        EXPECT_EQ(path, home_ / ("Downloads/" + name));
        EXPECT_TRUE(test::contentOf(path) == bytes);
      }
    }
  }
  EXPECT_GT(server_.serviceStats().tokenHeaders, 0U);
  EXPECT_EQ(server_.storeStats().tokenHeaders, 0U) << "the token must not leave the service";
}

TEST_F(FileAdapterTest, BlocksMayCallBackInAndBlockWithoutDelayingOthers) {
  const Operation outer;
  const Operation inner;
  std::latch release(1);
  const Outcome file = upload({{"rawBytes", Data::fromBytes(test::sampleBytes(100'000))}}, "file");
  ASSERT_TRUE(file.success);
  // Eight transfers whose progress blocks wait: more than the pool has threads.
  std::vector<Operation> blocked(8);
  for (std::size_t i = 0; i < blocked.size(); ++i) {
    startUpload(blocked[i], {{"rawBytes", Data::fromBytes("bytes")}}, "blocked" + std::to_string(i),
                {}, [&release](const Value&) { release.wait(); });
  }
  Storage::getFilesWithUrl(server_.url(), "file_name eq 'file'", headers_,
                           [&](const Value& result) {
                             outer.onSuccess()(result);
                             Storage::getFilesWithUrl(server_.url(), {}, headers_,
                                                      inner.onSuccess(), inner.onFailure(), {});
                           },
                           outer.onFailure(), {});
  EXPECT_TRUE(outer.wait().success);
  EXPECT_TRUE(inner.wait().success);
  release.count_down();
  for (const Operation& operation : blocked) EXPECT_TRUE(operation.wait().success);
}

TEST_F(FileAdapterTest, AThousandOperationsAtOnceAllEnd) {
  constexpr int kOperations = 1000;
  const std::string path = makeFile("small", test::sampleBytes(5000));
  std::vector<Operation> operations(kOperations);
  for (int i = 0; i < kOperations; ++i) {
    const Operation& operation = operations[static_cast<std::size_t>(i)];
    if (i % 2 == 0) {
      Storage::getFilesWithUrl(server_.url(), "file_name eq 'none'", headers_,
                               operation.onSuccess(), operation.onFailure(), {});
    } else {
      startUpload(operation, {{"filePath", path}}, "small" + std::to_string(i));
    }
  }
  int successes = 0;
  for (const Operation& operation : operations) successes += operation.wait().success ? 1 : 0;
  EXPECT_EQ(successes, kOperations);
}

TEST_F(FileAdapterTest, NoSecretReachesTheLogOrAnError) {
  headers_ = {{"X-Pelmar-Authorization", "marker-token"},
              {"Cookie", "marker-cookie"},
              {"authorization", "marker-basic"}};
  const test::RecordingLog log;
  const Outcome uploaded = upload({{"rawBytes", Data::fromBytes("bytes")}}, "secret");
  ASSERT_TRUE(uploaded.success) << uploaded.value.description();
  std::string said = list("file_name eq 'secret'").value.description();
  server_.addFault(
      {{},
       {.status = 500,
        .body = R"({"echo":{"X-Pelmar-Authorization":"marker-token"},"cookie":"marker-cookie"})"}});
  said += list("").value.description() + download("missing").value.description();
  for (const auto& line : log->lines()) said += line.text + "\n";
  EXPECT_THAT(said, HasSubstr("Network response"));
  EXPECT_THAT(said, Not(HasSubstr("marker-")));
}

}  // namespace
}  // namespace varo::binary
