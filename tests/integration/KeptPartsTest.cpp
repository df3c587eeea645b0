// Gets whose parts stay for the next one, and parts that come out of order.

#include "Client/PartsRecord.h"
#include "tests/support/Await.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/ObjectStoreFixture.h"
#include "tests/support/ScriptedServer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <future>
#include <string>

namespace varo {
namespace {

using namespace std::chrono_literals;
using detail::PartsRecord;
using test::contentOf;
using test::eventually;
using test::writeFile;
using testing::HasSubstr;
namespace fs = std::filesystem;

constexpr std::size_t kPart = 65'536;
/// So large that each is recorded when it comes.
constexpr std::size_t kLargePart = std::size_t{8} << 20U;
constexpr char kEndpoint[] = "VARO_TEST_ENDPOINT";
constexpr char kFolder[] = "VARO_TEST_FOLDER";
const GetOptions kOneByOne{.partSize = 64_KiB, .partsAtOnce = 1, .keepParts = true};
const GetOptions kKept{.partSize = 64_KiB, .keepParts = true};
const GetOptions kLarge{.partSize = 8_MiB, .keepParts = true};

/// Of an object of six parts, which a store gives to everybody.
class KeptPartsTest : public ObjectStoreTest {
 protected:
  void SetUp() override {
    sandbox::SandboxOptions open;
    open.objectStore.requiresSignature = false;
    restart(open);
    put(content_);
  }

  void put(const std::string& content) {
    server_->clearStats();
    ASSERT_TRUE(store().put(kKey, Source::text(content), {.partSize = 64_MiB}).get());
    ASSERT_TRUE(hasServed(1));
    server_->clearStats();
  }
  /// Requests are noted when they were answered, which may be after the client knows.
  [[nodiscard]] bool hasServed(std::uint64_t requests) const {
    return eventually([&] { return server_->storeStats().requests == requests; });
  }
  [[nodiscard]] static std::ptrdiff_t partsIn(const fs::path& record) {
    const auto read = PartsRecord::parse(contentOf(record));
    return read ? std::count(read->isThere.begin(), read->isThere.end(), true) : 0;
  }
  /// Of which four parts have come, and the fifth is stuck.
  [[nodiscard]] Transfer<ObjectInfo> stuckGet() {
    server_->addFault({.match = {.listener = "store", .skip = 4}, .action = {.latency = -1ms}});
    auto get = store().get(kKey, file_, kOneByOne);
    EXPECT_TRUE(eventually([&] { return server_->heldRequests() == 1; }));
    return get;
  }
  void giveUp(Transfer<ObjectInfo> get) {
    get.cancel();
    EXPECT_EQ(get.get().error().kind, Kind::kCancelled);
    EXPECT_EQ(partsIn(record_), 4);
    EXPECT_FALSE(fs::exists(file_));
    server_->clearFaults();
    EXPECT_TRUE(hasServed(5));
    server_->clearStats();
  }
  /// Gets the object with so many requests, and leaves nothing but the file.
  void finish(const std::string& content, std::uint64_t requests, const GetOptions& options) {
    const auto got = store().get(kKey, file_, options).get();
    ASSERT_TRUE(got) << got.error().message;
    EXPECT_TRUE(contentOf(file_) == content);
    EXPECT_TRUE(hasServed(requests)) << server_->storeStats().requests;
    EXPECT_FALSE(fs::exists(part_) || fs::exists(record_));
    fs::remove(file_);
    server_->clearStats();
  }

  const std::string content_ = sandbox::sampleBytes(5 * kPart + 3);
  const fs::path file_ = path("file"), part_ = path(".file.varo-part"),
                 record_ = path(".file.varo-record");
};

TEST_F(KeptPartsTest, AProcessThatWasKilledIsGoneOnWith) {
  const std::string content = sandbox::sampleBytes(kLargePart + 3);
  put(content);
  // The other process runs this test up to its death, with what the first one has set.
  const auto set = [](const char* name, const std::string& own) {
    const char* given = std::getenv(name);
    return test::EnvironmentVariable(name, given != nullptr ? given : own);
  };
  const auto endpoint = set(kEndpoint, where().endpoint);
  const auto folder = set(kFolder, directory_);
  const auto getAndDie = [] {
    const fs::path to(std::getenv(kFolder));
    const S3 where{.endpoint = std::getenv(kEndpoint), .region = "us-east-1", .bucket = kBucket};
    const auto get = ObjectStore::create(where)->get(kKey, to / "file", kLarge);
    if (eventually([&] { return partsIn(to / ".file.varo-record") > 0; })) std::raise(SIGKILL);
  };
  server_->addFault({.match = {.listener = "store", .skip = 1}, .action = {.latency = -1ms}});
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  EXPECT_EXIT(getAndDie(), testing::KilledBySignal(SIGKILL), "");
  ASSERT_EQ(partsIn(record_), 1);
  server_->clearFaults();
  const auto got = store().get(kKey, file_, kLarge).get();
  ASSERT_TRUE(got) << got.error().message;
  EXPECT_TRUE(contentOf(file_) == content);
  EXPECT_TRUE(eventually([&] { return askedFor("bytes=8388608-8388610") > 0; }));
  EXPECT_EQ(askedFor("bytes=0-8388607"), 1U) << "was recorded";
}

TEST_F(KeptPartsTest, GoesOnOnlyWithWhatIsOfTheSameObject) {
  const std::string other = sandbox::sampleBytes(5 * kPart + 4);
  const auto rewrite = [&](const std::function<void(PartsRecord&)>& change) {
    auto record = PartsRecord::parse(contentOf(record_)).value();
    change(record);
    writeFile(record_, record.text());
  };
  const struct {
    const char* name;
    std::uint64_t requests;
    std::function<void()> happens;
    GetOptions options = kKept;
  } cases[] = {
      {"nothing", 2, [] {}},
      {"another part size", 3, [] {}, {.partSize = 128_KiB, .keepParts = true}},
      {"a damaged record", 6, [&] { writeFile(record_, contentOf(record_) + "\n"); }},
      {"no record", 6, [&] { fs::remove(record_); }},
      {"no part", 6, [&] { fs::remove(part_); }},
      {"a directory", 6, [&] { fs::remove(record_), fs::create_directory(record_); }},
      {"of another object", 6, [&] { rewrite([](PartsRecord& to) { to.object = "other"; }); }},
      {"a file that was cut", 6, [&] { fs::resize_file(part_, 4 * kPart - 1); }},
      {"a finished file", 6, [&] { fs::create_hard_link(part_, path("finished")); }},
      {"all but the name", 1,
       [&] {
         rewrite([](PartsRecord& to) { to.isThere.assign(6, true); });
         writeFile(part_, content_);
       }},
      // It shows with the first part that is asked for.
      {"another version", 7, [&] { put(other); }},
  };
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    giveUp(stuckGet());
    one.happens();
    finish(one.requests == 7 ? other : content_, one.requests, one.options);
  }
  EXPECT_EQ(fs::file_size(path("finished")), 4 * kPart) << "was written to";
}

TEST_F(KeptPartsTest, OnlyOneGetFillsAFile) {
  auto first = stuckGet();
  for (const bool isPaused : {false, true}) {
    if (isPaused) first.pause();
    ASSERT_TRUE(eventually([&] { return !isPaused || first.state() == State::kPaused; }));
    const auto second = store().get(kKey, file_, kKept).get();
    EXPECT_EQ(nameOf(second.error().kind), nameOf(Kind::kConflict));
    EXPECT_THAT(second.error().message, HasSubstr(file_));
  }
  giveUp(std::move(first));
  EXPECT_EQ(store().get(ObjectKey("none"), file_, kKept).get().error().kind, Kind::kNotFound);
  EXPECT_EQ(partsIn(record_), 4) << "are of another object";
  finish(content_, 3, kKept);

  EXPECT_EQ(store().get(ObjectKey("none"), file_, kKept).get().error().kind, Kind::kNotFound);
  EXPECT_FALSE(fs::exists(part_)) << "nothing came that could stay";
  std::string text;
  EXPECT_EQ(store().get(kKey, into(text), kKept).get().error().kind, Kind::kInvalidArgument);
  for (const int wrong : {0, 65}) {
    EXPECT_FALSE(store().get(kKey, file_, {.partsAtOnce = wrong}).get());
    EXPECT_FALSE(store().put(kKey, Source::text("x"), {.partsAtOnce = wrong}).get());
  }
}

TEST(PartsOutOfOrderTest, ReachASinkInOrder) {
  const std::string content = sandbox::sampleBytes(5 * kPart + 1);
  std::promise<void> thirdHasCome;
  const auto hasCome = thirdHasCome.get_future().share();
  test::ScriptedServer server([&](const test::WireRequest& request) {
    const std::size_t first = std::stoul(request.header("Range")->substr(6));
    if (first == kPart) hasCome.wait();
    if (first == 3 * kPart) thirdHasCome.set_value();  // it is asked for after the third
    const std::string bytes = content.substr(first, kPart);
    const std::string last = std::to_string(first + bytes.size() - 1);
    return test::reply(206, bytes,
                       "ETag: \"1\"\r\nContent-Range: bytes " + std::to_string(first) + "-" + last +
                           "/" + std::to_string(content.size()) + "\r\n");
  });
  std::string text;
  const Sink into = [&text](std::span<const std::byte> bytes) { text += textOf(bytes); };
  const S3 where{.endpoint = server.url(""), .region = "r", .bucket = kBucket};
  const auto got = ObjectStore::create(where)->get(kKey, into, {.partSize = 64_KiB}).get();
  ASSERT_TRUE(got) << got.error().message;
  EXPECT_TRUE(text == content);
}

}  // namespace
}  // namespace varo
