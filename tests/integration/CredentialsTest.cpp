// Credentials that expire, are refused or belong to another client, and clocks that are off.

#include "Platform/Foundation/Mutex.h"
#include "tests/support/BlobStoreFixture.h"
#include "tests/support/ObjectStoreFixture.h"
#include "varo/client.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::contentOf;

using testing::HasSubstr;
using testing::Not;
using testing::Pair;

/// Gives "marker 1", "marker 2", ... as the token and as the session token of the sandbox's keys.
class Rotating {
 public:
  explicit Rotating(bool lasts = false) : lasts_(lasts) {}

  [[nodiscard]] std::function<Outcome<Credentials>()> provider() {
    return [this] {
      const std::string token = "marker " + std::to_string(++asked);
      Credentials given{.token = token,
                        .accessKey = "sandbox",
                        .secretKey = "sandbox-secret-key",
                        .sessionToken = token};
      if (lasts_) given.expires = std::chrono::system_clock::now() + 1h;
      return given;
    };
  }

  std::atomic<int> asked = 0;

 private:
  const bool lasts_;
};

std::size_t refusedBy(const sandbox::SandboxServer& server) {
  const auto requests = server.requests();
  return static_cast<std::size_t>(std::count_if(
      requests.begin(), requests.end(), [](const auto& one) { return one.status / 100 == 4; }));
}

class CredentialsTest : public test::BlobStoreFixture {
 protected:
  void SetUp() override { restart({.requiredToken = "marker 1"}); }

  [[nodiscard]] FileClient files(std::function<Outcome<Credentials>()> provider) {
    Options options{.url = server_->url(), .credentials = std::move(provider)};
    options.chunkSize = 64_KiB;
    options.logLevel = LogLevel::kTrace;
    options.log = [this](const LogRecord& record) {
      const platform::MutexLock lock(mutex_);
      logged_ += record.message + "\n";
    };
    return FileClient::create(options).value();
  }
  /// From the request after `skip` of these on another token is wanted.
  void expire(const std::string& method, const std::string& path, std::uint64_t skip) {
    server_->addFault({.match = {.method = method, .path = path, .skip = skip, .count = 1},
                       .action = {.newToken = "marker 2"}});
  }
  [[nodiscard]] std::size_t refused() const { return refusedBy(*server_); }
  void expectNoSecret(const Failure& failure) {
    EXPECT_THAT(failure.message + failure.responseExcerpt + failure.cause.text,
                Not(HasSubstr("marker")));
  }
  [[nodiscard]] std::string logged() {
    const platform::MutexLock lock(mutex_);
    return logged_;
  }

 private:
  platform::Mutex mutex_;
  std::string logged_ VARO_GUARDED_BY(mutex_);
};

TEST_F(CredentialsTest, ATokenThatExpiresInAnUploadIsRenewedAtThatRequest) {
  const std::string content = sandbox::sampleBytes(200'000);  // four chunks
  const struct {
    std::string method, path;
    std::uint64_t skip;
  } kCases[] = {{"POST", "/objects/File", 0}, {"", "/bytes/", 2}, {"PUT", "/objects/File", 0}};
  for (const bool lasts : {false, true}) {
    for (const auto& c : kCases) {
      SCOPED_TRACE(c.method + c.path);
      restart({.requiredToken = "marker 1"});
      Rotating tokens(lasts);
      const FileClient client = files(tokens.provider());
      expire(c.method, c.path, c.skip);
      const auto uploaded = client.upload(Source::text(content), {.name = "a"}).get();
      ASSERT_TRUE(uploaded) << uploaded.error().message;
      EXPECT_EQ(tokens.asked, 2);
      EXPECT_EQ(refused(), 1U);
      const auto listed = files([] { return Credentials{.token = "marker 2"}; }).list().get();
      ASSERT_TRUE(listed) << listed.error().message;
      std::string bytes;
      const Sink sink = [&](std::span<const std::byte> piece) { bytes += textOf(piece); };
      const auto got =
          files([] { return Credentials{.token = "marker 2"}; }).download(uploaded->id, sink).get();
      ASSERT_TRUE(got) << got.error().message;
      EXPECT_TRUE(bytes == content);
    }
  }
  EXPECT_THAT(logged(), Not(HasSubstr("marker")));
}

TEST_F(CredentialsTest, ATokenThatExpiresInADownloadOrABlobIsRenewedAtThatRange) {
  const std::string content = sandbox::sampleBytes(200'000);
  const auto constant = [] { return Credentials{.token = "marker 1"}; };
  const auto uploaded = files(constant).upload(Source::text(content), {.name = "a"}).get();
  ASSERT_TRUE(uploaded) << uploaded.error().message;
  makeDatabase("a");
  server_->clearStats();
  expire("GET", "/bytes/", 0);
  Rotating tokens;
  const auto got = files(tokens.provider()).download(uploaded->id, path("copy")).get();
  ASSERT_TRUE(got) << got.error().message;
  EXPECT_TRUE(contentOf(path("copy")) == content);
  EXPECT_EQ(tokens.asked, 2);
  EXPECT_EQ(refused(), 1U);

  Rotating others;
  others.asked = 1;
  server_->clearFaults();
  server_->clearStats();
  server_->addFault(
      {.match = {.path = "/binary", .skip = 1, .count = 1}, .action = {.newToken = "marker 3"}});
  BlobService wanted = service("a");
  wanted.options.credentials = others.provider();
  const BlobStore blobs = BlobStore::open(database("a"), path("a"), wanted).value();
  const auto fetched = blobs.fetch(blob(1)).get();
  ASSERT_TRUE(fetched) << fetched.error().message;
  EXPECT_TRUE(contentOf(fetched->string()) == photo("a", 1));
  EXPECT_EQ(others.asked, 3);
  const std::string second = "bytes=4096-8191";
  EXPECT_THAT(ranges(), testing::ElementsAre("bytes=0-4095", second, second, "bytes=8192-9999"));
  EXPECT_THAT(contentOf(database("a")), Not(HasSubstr("marker")));
}

TEST_F(CredentialsTest, BadCredentialsAreRepeatedOnceWhereTheyAreOthersAndToldThen) {
  restart({.requiredToken = "right"});
  makeDatabase("a");
  for (const bool isSame : {true, false}) {
    SCOPED_TRACE(isSame);
    Rotating tokens;
    const auto same = [&tokens] {
      ++tokens.asked;
      return Credentials{.token = "marker"};
    };
    const auto provider = isSame ? std::function<Outcome<Credentials>()>(same) : tokens.provider();
    server_->clearStats();
    const auto listed = files(provider).list().get();
    ASSERT_FALSE(listed);
    EXPECT_EQ(nameOf(listed.error().kind), nameOf(Kind::kUnauthorized));
    EXPECT_EQ(listed.error().httpStatus, 401);
    expectNoSecret(listed.error());
    EXPECT_EQ(tokens.asked, 2);
    EXPECT_EQ(server_->requests().size(), isSame ? 1U : 2U);

    BlobService wanted = service("a");
    wanted.options.credentials = provider;
    const BlobStore blobs = BlobStore::open(database("a"), path("a"), wanted).value();
    const auto fetched = blobs.fetch(blob(1)).get();
    ASSERT_FALSE(fetched);
    EXPECT_EQ(nameOf(fetched.error().kind), nameOf(Kind::kUnauthorized));
    expectNoSecret(fetched.error());
  }
  EXPECT_THAT(contentOf(database("a")) + logged(), Not(HasSubstr("marker")));
}

TEST_F(CredentialsTest, AProviderThatFailsLaterEndsTheOperationWithItsFailure) {
  std::atomic<int> asked = 0;
  const auto provider = [&asked]() -> Outcome<Credentials> {
    // What is about to expire is asked for again before the next request.
    if (++asked < 3)
      return Credentials{.token = "marker 1", .expires = std::chrono::system_clock::time_point()};
    Failure failure;
    failure.kind = Kind::kNoConnection;
    failure.message = "the key server is away";
    return failure;
  };
  const auto uploaded =
      files(provider).upload(Source::text(sandbox::sampleBytes(200'000)), {.name = "a"}).get();
  ASSERT_FALSE(uploaded);
  EXPECT_EQ(nameOf(uploaded.error().kind), nameOf(Kind::kNoConnection));
  EXPECT_THAT(uploaded.error().message, HasSubstr("the key server is away"));
}

TEST_F(CredentialsTest, AnOperationThatTheProviderBeginsWithItsOwnClientFailsAtOnce) {
  std::optional<FileClient> client;
  std::string inner;
  client = files([&]() -> Outcome<Credentials> {
    const auto listed = client->list().get();
    if (!listed) inner = listed.error().message;
    return Credentials{.token = "marker 1"};
  });
  EXPECT_TRUE(client->list().get());
  EXPECT_THAT(inner, HasSubstr("Options::credentials of the same client has begun it"));
}

TEST_F(CredentialsTest, FiftyOperationsAtOnceAskOnce) {
  Rotating tokens(true);
  const FileClient client = files(tokens.provider());
  std::vector<Transfer<std::vector<FileRecord>>> lists;
  for (int i = 0; i < 50; ++i) lists.push_back(client.list());
  for (auto& list : lists) EXPECT_TRUE(list.get());
  EXPECT_EQ(tokens.asked, 1);
}

TEST_F(CredentialsTest, ClientsSideBySideShowTheirOwn) {
  restart({});
  const FileClient one = files([] { return Credentials{.token = "one"}; });
  const FileClient other = files([] { return Credentials{.token = "other"}; });
  const FileClient nobody = files(nullptr);
  for (int i = 0; i < 5; ++i) {
    auto first = one.list();
    auto second = other.list();
    auto third = nobody.list();
    EXPECT_TRUE(first.get() && second.get() && third.get());
  }
  std::map<std::string, int> shown;
  for (const auto& request : server_->requests()) {
    const std::string* token = request.header("X-Pelmar-Authorization");
    ++shown[token != nullptr ? *token : "none"];
  }
  EXPECT_THAT(shown, testing::ElementsAre(Pair("none", 5), Pair("one", 5), Pair("other", 5)));
}

class StoreCredentialsTest : public ObjectStoreTest {
 protected:
  void expire(const std::string& method, std::uint64_t skip) {
    server_->addFault({.match = {.method = method, .listener = "store", .skip = skip, .count = 1},
                       .action = {.newToken = "marker 2"}});
  }
  void restartWithSession() {
    sandbox::SandboxOptions options;
    options.objectStore.sessionToken = "marker 1";
    restart(options);
  }
  [[nodiscard]] std::size_t refused() const { return refusedBy(*server_); }
};

TEST_F(StoreCredentialsTest, ASessionThatExpiresIsRenewedInPutGetAndHead) {
  const std::string content = sandbox::sampleBytes(11'000'000);  // three parts
  const struct {
    std::string method;
    std::uint64_t skip;
  } kCases[] = {{"PUT", 1}, {"GET", 2}, {"HEAD", 0}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.method);
    restartWithSession();
    expire(c.method, c.skip);
    Rotating keys(true);
    const ObjectStore objects =
        ObjectStore::create(where(), {.credentials = keys.provider()}).value();
    const auto put = objects.put(kKey, Source::text(content), {.partSize = 5_MiB}).get();
    ASSERT_TRUE(put) << put.error().message;
    ASSERT_TRUE(objects.head(kKey).get());
    const auto got = objects.get(kKey, path("copy"), {.partSize = 4_MiB}).get();
    ASSERT_TRUE(got) << got.error().message;
    EXPECT_TRUE(test::contentOf(path("copy")) == content);
    EXPECT_EQ(keys.asked, 2);
    EXPECT_GE(refused(), 1U);
    std::filesystem::remove(path("copy"));
  }
}

TEST_F(StoreCredentialsTest, ASessionThatStaysExpiredIsToldWithoutIt) {
  restartWithSession();
  server_->addFault({.match = {.listener = "store", .count = 1}, .action = {.newToken = "other"}});
  Rotating keys;
  const auto put = ObjectStore::create(where(), {.credentials = keys.provider()})
                       ->put(kKey, Source::text("x"))
                       .get();
  ASSERT_FALSE(put);
  EXPECT_EQ(nameOf(put.error().kind), nameOf(Kind::kUnauthorized));
  EXPECT_THAT(put.error().message + put.error().responseExcerpt + put.error().cause.text,
              Not(HasSubstr("marker")));
  EXPECT_EQ(keys.asked, 2);
  EXPECT_EQ(server_->storeStats().requests, 2U);
}

TEST_F(StoreCredentialsTest, AClockThatIsOffIsCorrectedOnceForTheStore) {
  for (const auto offset : {std::chrono::seconds(20min), std::chrono::seconds(-20min)}) {
    SCOPED_TRACE(offset.count());
    for (const bool beginsWithHead : {false, true}) {
      sandbox::SandboxOptions options;
      options.objectStore.clockOffset = offset;
      restart(options);
      server_->clearStats();
      const ObjectKey key(std::to_string(offset.count()) + (beginsWithHead ? " head" : " put"));
      const ObjectStore objects = store();
      if (beginsWithHead) {
        EXPECT_EQ(nameOf(objects.head(key).get().error().kind), nameOf(Kind::kNotFound));
        EXPECT_EQ(server_->storeStats().requests, 2U);
        server_->clearStats();
      }
      const auto put = objects.put(key, Source::text("bytes")).get();
      ASSERT_TRUE(put) << put.error().message;
      std::string text;
      ASSERT_TRUE(objects.get(key, into(text)).get());
      EXPECT_EQ(text, "bytes");
      EXPECT_EQ(refused(), beginsWithHead ? 0U : 1U);
    }
  }
  // The store says that the time is wrong, and shows the same: nothing would change.
  restart({});
  server_->addFault(
      {.match = {.listener = "store"},
       .action = {.status = 403, .body = "<Error><Code>RequestTimeTooSkewed</Code></Error>"}});
  EXPECT_EQ(nameOf(store().put(kKey, Source::text("x")).get().error().kind),
            nameOf(Kind::kUnauthorized));
  EXPECT_EQ(server_->storeStats().requests, 1U);
}

}  // namespace
}  // namespace varo
