#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/SteppingClock.h"
#include "tests/support/TemporaryDirectory.h"

#include <filesystem>
#include <future>

// Transfers to and from an S3-compatible store that others have written, which computes the
// signatures of what it receives by itself. (Unsigned requests pass it, so a wrong key has to be
// refused as well.)

namespace varo::binary {
namespace {

using namespace platform;

constexpr char kBucket[] = "bucket";
constexpr char kKey[] = "S3RVER";  // the store's one key, and the secret of it
constexpr std::int64_t kRange = 1000;
const std::string kMismatch = "403 SignatureDoesNotMatch";

/// What a request is made with. All of it is right unless a test changes it.
struct Access {
  std::string accessKey = kKey;
  std::string secretKey = kKey;
  std::string bucket = kBucket;
  const Clock* clock = &Clock::system();
};

/// Sends requests with another digest of their bodies than was signed.
class TamperingTransport final : public HttpTransport {
 public:
  std::shared_ptr<HttpTransfer> send(HttpRequest request, HttpCompletion completion) override {
    for (HttpHeader& header : request.headers) {
      if (header.name == "X-Amz-Content-SHA256") header.value.assign(64, '0');
    }
    return transport_->send(std::move(request), std::move(completion));
  }
  void shutdown() override { transport_->shutdown(); }

 private:
  const std::shared_ptr<HttpTransport> transport_ = VRONetworkUtility::transport();
};

class ObjectStorePeerTest : public testing::Test {
 protected:
  using Outcome = std::promise<std::string>;

  void SetUp() override {
    startStore();
    if (store_.empty()) {
      GTEST_SKIP() << "node, or what scripts/setup puts into build/peers, is missing: no "
                      "request went to a store that others have written";
    }
    setTransferPolicy(TransferPolicy::kSafe);  // errors tell what the server answered
    UserDirectories::install(UserDirectories::below(directory_.path()));
    sandbox::SandboxOptions options;
    options.dataDirectory = directory_ / "sandbox";
    options.objectStore.outsideUrl = "http://" + store_;
    sandbox_ = std::make_unique<sandbox::SandboxServer>(options);
    const auto error = sandbox_->start();
    ASSERT_FALSE(error.has_value()) << error->message;
  }
  void TearDown() override {
    EXPECT_TRUE(test::eventually([this] { return VSTask::liveCount() == tasksBefore_; }));
    VRONetworkUtility::setTransport(nullptr);
    UserDirectories::install(nullptr);
    setTransferPolicy(TransferPolicy::kCompatible);
  }

  /// Leaves `store_` empty where it is not installed.
  void startStore() {
    if (!std::filesystem::exists(VARO_PEERS "/node_modules")) return;
    process_.emplace(test::ChildProcess::Settings{
        .program = "node",
        .arguments = {VARO_PEER_STORE_SCRIPT, VARO_PEERS, directory_ / "store", kBucket},
        .environment = {},
        .directory = directory_.path(),
        .input = std::nullopt});
    std::string port;
    const auto isDecided = [&] {
      port = process_->output();
      return port.ends_with('\n') || process_->errors().starts_with("env: ");
    };
    EXPECT_TRUE(test::eventually(isDecided)) << process_->errors();
    if (!port.empty()) store_ = "127.0.0.1:" + port.substr(0, port.size() - 1);
  }
  /// Of what the store has under a key of its bucket; empty where there is no such object.
  [[nodiscard]] std::string storedBytes(const std::string& key) const {
    return test::contentOf(directory_ /
                           ("store/" + std::string(kBucket) + "/" + key + "._S3rver_object"));
  }

  /// "ok", or the status and the code of the store's answer, which `userInfo` holds.
  static std::string reason(const Dictionary& userInfo) {
    const std::string body = userInfo["responseBody"].textValue();
    const std::size_t start = body.find("<Code>") + 6;
    return userInfo["httpStatusCode"].textValue() + " " +
           (start < 6 ? body : body.substr(start, body.find("</Code>") - start));
  }
  static std::string ended(Outcome& outcome) {
    auto future = outcome.get_future();
    const bool isThere = future.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
    return isThere ? future.get() : "no end";
  }

  std::string upload(const std::string& name, const Access& access = {}) {
    const auto outcome = std::make_shared<Outcome>();
    const auto manager = std::make_shared<OnlineBinaryUploadManager>(*access.clock);
    manager->createAndStartOnlineUploadTaskFor(
        Dictionary{{"URL", sandbox_->templateUrl()},
                   {"rawBytes", Data::fromBytes(bytes_)},
                   {"uploadParams", Dictionary{{"objectName", access.bucket + "/" + name},
                                               {"accessKeyID", access.accessKey},
                                               {"secretAccessKey", access.secretKey},
                                               {"regionName", "us-east-1"}}}},
        {}, {}, [outcome](const auto&, const auto&, const auto&) { outcome->set_value("ok"); },
        [outcome](const auto&, const Value& errors, const auto&) {
          const bool isOne = errors.isArray() && errors.array()->size() == 1;
          outcome->set_value(isOne ? reason((*errors.array())[0].error()->userInfo())
                                   : errors.description());
        },
        std::nullopt);
    return ended(*outcome);
  }

  /// In ranges of `kRange` bytes, into a file or, with `chunks`, there.
  std::string download(const std::string& name, const Access& access = {},
                       std::vector<std::string>* chunks = nullptr) {
    const auto outcome = std::make_shared<Outcome>();
    const auto manager = std::make_shared<OnlineBinaryDataManager>(*access.clock);
    manager->createAndStartOnlineDownloadTaskFor(
        {{"fileId", access.bucket + "/" + name},
         {"accessKeyID", access.accessKey},
         {"secretAccessKey", access.secretKey}},
        chunks != nullptr,
        {{"method", "GET"},
         {"Host", store_},
         {"endpointUrl", "http://" + store_ + "/${fileId}"},
         {"ChunkSize", kRange},
         {"Auth", "HMACDigest"},
         {"AuthParameters", Dictionary{{"serviceName", "s3"},
                                       {"regionName", "us-east-1"},
                                       {"objectName", "${fileId}"},
                                       {"accessKeyID", "${accessKeyID}"},
                                       {"secretAccessKey", "${secretAccessKey}"}}}},
        {}, {},
        [chunks](const auto&, const std::shared_ptr<Chunk>& chunk, const auto&) {
          if (chunk->data()) chunks->push_back(*chunk->data()->readAll(kRange));
        },
        [this, outcome, chunks](const auto&, const std::string& path, const auto&) {
          const bool isRight = chunks != nullptr || test::contentOf(path) == bytes_;
          outcome->set_value(isRight ? "ok" : "other bytes");
        },
        [outcome](const auto&, const ErrorPtr& error, const auto&) {
          outcome->set_value(reason(error->userInfo()["NetworkError"].dictionaryValue()));
        },
        std::nullopt);
    return ended(*outcome);
  }

  const std::string bytes_ = test::sampleBytes(2500);

 private:
  const std::size_t tasksBefore_ = VSTask::liveCount();
  const test::TemporaryDirectory directory_;
  std::optional<test::ChildProcess> process_;
  std::string store_;  // host and port
  std::unique_ptr<sandbox::SandboxServer> sandbox_;
};

TEST_F(ObjectStorePeerTest, SignedObjectsComeBackAsTheyWereUnderNamesThatNeedNoEncoding) {
  struct Case {
    std::string name;                ///< As it is signed and sent.
    std::optional<std::string> key;  ///< In the store; none where it refuses the signature.
  };
  const Case cases[] = {
      {"plain", "plain"},
      {"a/b/c.d/e", "a/b/c.d/e"},
      {"~home/.hidden/v1.2..3-x_y", "~home/.hidden/v1.2..3-x_y"},
      {"a%20blank%2Ba%2525", "a blank+a%25"},
      {"caf%C3%A9/%E6%BC%A2", "caf\xC3\xA9/\xE6\xBC\xA2"},
      {"k%3D%26%3B%27%28%29%21%2A", "k=&;'()!*"},
      // The store computes from its own encoding of the name, and these are signed as they are.
      {"a blank", std::nullopt},
      {"a+plus", std::nullopt},
      {"caf\xC3\xA9", std::nullopt},
      {"k=v", std::nullopt},
      {"a%2b", std::nullopt},
      {"%7Ehome", std::nullopt},
  };
  for (const Case& each : cases) {
    SCOPED_TRACE(each.name);
    const std::string expected = each.key ? "ok" : kMismatch;
    EXPECT_EQ(upload(each.name), expected);
    EXPECT_TRUE(!each.key || storedBytes(*each.key) == bytes_);
    EXPECT_EQ(download(each.name), expected);
  }
}

TEST_F(ObjectStorePeerTest, OneSignatureHoldsForAllRangesOfAStream) {
  ASSERT_EQ(upload("streamed"), "ok");
  std::vector<std::string> chunks;
  EXPECT_EQ(download("streamed", {}, &chunks), "ok");
  EXPECT_THAT(chunks, testing::ElementsAre(bytes_.substr(0, 1000), bytes_.substr(1000, 1000),
                                           bytes_.substr(2000)));
}

TEST_F(ObjectStorePeerTest, RefusalsReachTheCallerWithTheStoresReason) {
  using std::chrono::system_clock;
  const std::int64_t now = system_clock::to_time_t(system_clock::now());
  const test::SteppingClock ahead(now + 3600);
  const test::SteppingClock behind(now - 3600);
  struct Case {
    Access access;
    std::string reason;
  };
  const Case cases[] = {
      {{.secretKey = "another"}, kMismatch},
      {{.accessKey = "nobody"}, "403 InvalidAccessKeyId"},
      {{.clock = &ahead}, "403 RequestTimeTooSkewed"},
      {{.clock = &behind}, "403 RequestTimeTooSkewed"},
      {{.bucket = "elsewhere"}, "404 NoSuchBucket"},
  };
  ASSERT_EQ(upload("object"), "ok");
  for (const Case& each : cases) {
    EXPECT_EQ(upload("object", each.access), each.reason);
    EXPECT_EQ(download("object", each.access), each.reason);
  }
  VRONetworkUtility::setTransport(std::make_shared<TamperingTransport>());
  EXPECT_EQ(upload("object"), kMismatch);
  EXPECT_EQ(download("object"), kMismatch);
}

}  // namespace
}  // namespace varo::binary
