// Credentials that expire, are refused or belong to another client, and clocks that are off.

#include "tests/support/BlobStoreFixture.h"
#include "tests/support/CallLog.h"
#include "tests/support/ObjectStoreFixture.h"
#include "varo/client.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>

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

class CredentialsTest : public test::BlobStoreFixture {
 protected:
  void SetUp() override { restart({.requiredToken = "marker 1"}); }

  [[nodiscard]] FileClient files(std::function<Outcome<Credentials>()> provider) {
    Options options{.url = server_->url(), .credentials = std::move(provider)};
    options.logLevel = LogLevel::kTrace;
    options.log = [this](const LogRecord& record) { logged_.add(record.message); };
    return FileClient::create(options).value();
  }
  void expectNoSecret(const Failure& failure) {
    EXPECT_THAT(failure.message + failure.responseExcerpt + failure.cause.text,
                Not(HasSubstr("marker")));
  }

  test::CallLog<std::string> logged_;
};

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
  EXPECT_THAT(contentOf(database("a")), Not(HasSubstr("marker")));
  EXPECT_THAT(logged_.calls(), testing::Each(Not(HasSubstr("marker"))));
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
  [[nodiscard]] std::ptrdiff_t refused() const {
    const auto all = server_->requests();
    return std::count_if(all.begin(), all.end(), [](const auto& one) { return one.status >= 400; });
  }
};

TEST_F(StoreCredentialsTest, ASessionThatExpiresIsRenewedInAHeadToo) {
  sandbox::SandboxOptions options;
  options.objectStore.sessionToken = "marker 1";
  restart(options);
  server_->addFault({.match = {.method = "HEAD", .count = 1}, .action = {.newToken = "marker 2"}});
  Rotating keys(true);
  const ObjectStore objects =
      ObjectStore::create(where(), {.credentials = keys.provider()}).value();
  ASSERT_TRUE(objects.put(kKey, Source::text("x")).get());
  ASSERT_TRUE(objects.head(kKey).get());
  EXPECT_EQ(keys.asked, 2);
  EXPECT_EQ(refused(), 1);
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
      EXPECT_EQ(refused(), beginsWithHead ? 0 : 1);
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
