#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/TaskEngine/VSTask.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/Await.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

#include <functional>
#include <future>

namespace varo::binary {
namespace {

using Storage = BinaryFileStorageInterface;
using namespace platform;
using sandbox::SandboxServer;
using test::eventually;

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

/// Waits for the end of an operation, which is started with these blocks.
Outcome endOf(const std::function<void(const BinaryBlock& ok, const BinaryBlock& failed)>& start) {
  const auto end = std::make_shared<std::promise<Outcome>>();
  const auto settle = [end](bool success) {
    return [end, success](const Value& value) { end->set_value({success, value}); };
  };
  start(settle(true), settle(false));
  auto outcome = end->get_future();
  const bool ended = outcome.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
  EXPECT_TRUE(ended) << "an operation did not end";
  return ended ? outcome.get() : Outcome();
}

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

  Outcome upload(const Dictionary& file, const std::string& name, const Value& kind = {}) {
    const bool isPath = file.contains("filePath");
    const Dictionary params{
        {"headers", headers_},
        {"metadata", Dictionary{{"file_name", name}, {"sandbox_template", kind}}},
        {"file", file},
        {"chunkSize", 64 * 1024}};
    return endOf([&](const auto& ok, const auto& failed) {
      Storage::uploadBinaryWithUrl(
          server_.url(), isPath ? "UploadInputTypeLocalFilePath" : "UploadInputTypeRawBytes",
          params, ok, failed, [](const Value&) {}, {});
    });
  }
  Outcome list(const std::string& criteria) {
    return endOf([&](const auto& ok, const auto& failed) {
      Storage::getFilesWithUrl(server_.url(), criteria, headers_, ok, failed, {});
    });
  }
  /// A request of a file operation about what `metadata` names.
  [[nodiscard]] Dictionary about(const Dictionary& metadata) const {
    return {{"headers", headers_}, {"metadata", metadata}};
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
        test::writeFile(home_ / name, bytes);
        const Dictionary file = raw ? Dictionary{{"rawBytes", Data::fromBytes(bytes)}}
                                    : Dictionary{{"filePath", home_ / name}};
        const Outcome uploaded = upload(file, name, kind);
        ASSERT_TRUE(uploaded.success) << uploaded.value.description();
        const Outcome downloaded = endOf([&](const auto& ok, const auto& failed) {
          const Dictionary params = about({{"file_id", fileIdOf(uploaded)}});
          Storage::downloadWithURL(server_.url(), params, ok, failed, {}, {});
        });
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

TEST_F(FileAdapterTest, ListsAndUpdatesTellWhatWasAskedForAndFailuresWhatTheServiceSaid) {
  const Outcome uploaded = upload({{"rawBytes", Data::fromBytes("bytes")}}, "file");
  const Dictionary change{{"file_id", fileIdOf(uploaded)}, {"type", "png"}};
  const Outcome updated = endOf([&](const auto& ok, const auto& failed) {
    Storage::updateWithUrl(server_.url(), about(change), ok, failed, {});
  });
  ASSERT_TRUE(updated.success) << updated.value.description();
  EXPECT_EQ(updated.value.dictionaryValue()["requestContext"], Value(change));
  const Dictionary listed = list("type eq 'png'").value.dictionaryValue();
  EXPECT_EQ(listed["requestContext"], Value("type eq 'png'"));
  EXPECT_EQ(listed["records"].array()->size(), 1U);
  server_.addFault({{}, {.status = 200, .body = R"({"opstatus":8009,"errmsg":"no"})"}});
  const std::string text = "unexpected opstatus : 8009";
  const Dictionary answer{{"opstatus", 8009}, {"errmsg", "no"}};
  EXPECT_EQ(list("").value,
            Value(Dictionary{
                {"code", "6003"},
                {"localizedDescription", text},
                {"domain", "BinaryNetworkUtils"},
                {"userInfo", Dictionary{{"userInfo", answer}, {"NSLocalizedDescription", text}}}}));
}

}  // namespace
}  // namespace varo::binary
