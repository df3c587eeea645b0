#include "Platform/Logging/VaroNativeFacade.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/FileAdapterFixture.h"

namespace varo::binary {
namespace {

using Storage = BinaryFileStorageInterface;
using namespace platform;

Dictionary templateKind(const char* domain, const char* mode, const char* method, bool chunked) {
  return {{"domain", domain}, {"uploadMode", mode}, {"method", method}, {"chunkupload", chunked}};
}

/// The file adapter over the network, against the sandbox.
class FileAdapterTest : public test::FileAdapterFixture {
 protected:
  FileAdapterTest() {
    VRONetworkUtility::setTransport(nullptr);
    const auto problem = server_.start();
    EXPECT_FALSE(problem) << (problem ? problem->message : "");
    setTransferPolicy(TransferPolicy::kSafe);
    // What these tests provoke on purpose is not worth a warning each.
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kOff);
  }
  ~FileAdapterTest() override {
    awaitEndOfTasks();
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kWarning);
  }

  Event upload(const Dictionary& file, const std::string& name, const Value& kind = {}) {
    const bool isPath = file.contains("filePath");
    const Dictionary params{
        {"headers", headers_},
        {"metadata", Dictionary{{"file_name", name}, {"sandbox_template", kind}}},
        {"file", file},
        {"chunkSize", 64 * 1024}};
    Storage::uploadBinaryWithUrl(
        server_.url(), isPath ? "UploadInputTypeLocalFilePath" : "UploadInputTypeRawBytes", params,
        onSuccess(), onFailure(), {}, {});
    return awaitNext();
  }
  Event list(const std::string& criteria) {
    Storage::getFilesWithUrl(server_.url(), criteria, headers_, onSuccess(), onFailure(), {});
    return awaitNext();
  }
  /// A request of a file operation about what `metadata` names.
  [[nodiscard]] Dictionary about(const Dictionary& metadata) const {
    return {{"headers", headers_}, {"metadata", metadata}};
  }

  const test::TemporaryDirectory data_;
  sandbox::SandboxServer server_{[this] {
    sandbox::SandboxOptions options;
    options.dataDirectory = data_.path();
    return options;
  }()};
  Dictionary headers_;
};

/// The identifier that the service gave an uploaded file.
Value fileIdOf(const Value& uploaded) {
  return uploaded.dictionaryValue()["requestContext"].dictionaryValue()["file_id"];
}

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
        const Event uploaded = upload(file, name, kind);
        ASSERT_EQ(uploaded.block, "success") << uploaded.value.description();
        Storage::downloadWithURL(server_.url(), about({{"file_id", fileIdOf(uploaded.value)}}),
                                 onSuccess(), onFailure(), {}, {});
        const Event downloaded = awaitNext();
        ASSERT_EQ(downloaded.block, "success") << downloaded.value.description();
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
  const Event uploaded = upload({{"rawBytes", Data::fromBytes("bytes")}}, "file");
  const Dictionary change{{"file_id", fileIdOf(uploaded.value)}, {"type", "png"}};
  Storage::updateWithUrl(server_.url(), about(change), onSuccess(), onFailure(), {});
  const Event updated = awaitNext();
  ASSERT_EQ(updated.block, "success") << updated.value.description();
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
