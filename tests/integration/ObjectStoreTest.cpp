#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/ObjectStoreFixture.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <string>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::contentOf;
using test::eventually;
using test::writeFile;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

TEST_F(ObjectStoreTest, PutsLooksUpGetsAndRemovesUnderAnyKey) {
  const ObjectStore objects = store();
  for (const std::string key :
       {"photos/Ann 1.jpg",
        "gr\xC3\xBC\xC3\x9F"
        "e/\xE6\xBC\xA2.txt",
        "a+b=c&d?e#f%20g", "//a//b/", "(x)[y]{z}*'!~,;:@$|\\^`\"<>", "...", "a/..b/.c\n"}) {
    SCOPED_TRACE(key);
    const auto put =
        objects.put(ObjectKey(key), Source::text("bytes of " + key), {.contentType = "a/b;  c=d"});
    const auto made = put.get();
    ASSERT_TRUE(made) << made.error().message;
    const auto found = objects.head(ObjectKey(key)).get();
    ASSERT_TRUE(found) << found.error().message;
    EXPECT_EQ(found->key.text(), key);
    EXPECT_EQ(found->size, made->size);
    EXPECT_EQ(found->entityTag, made->entityTag);
    EXPECT_EQ(objects.list({.prefix = key}).get()->size(), 1U);
    std::string text;
    ASSERT_TRUE(objects.get(ObjectKey(key), into(text)).get());
    EXPECT_EQ(text, "bytes of " + key);
    EXPECT_EQ(objects.remove(ObjectKey(key)).get()->text(), key);
    const auto gone = objects.head(ObjectKey(key)).get();
    ASSERT_FALSE(gone);
    EXPECT_EQ(gone.error().kind, Kind::kNotFound);
  }
}

TEST_F(ObjectStoreTest, RefusesWhatNoAddressCanHold) {
  const ObjectStore objects = store();
  for (const std::string& key : {std::string(), std::string("a\0b", 3), std::string(1025, 'a'),
                                 std::string("."), std::string("a/../b"), std::string("a/.")}) {
    std::string text;
    EXPECT_EQ(objects.put(ObjectKey(key), Source::text("x")).get().error().kind,
              Kind::kInvalidArgument);
    EXPECT_EQ(objects.get(ObjectKey(key), into(text)).get().error().kind, Kind::kInvalidArgument);
    EXPECT_EQ(objects.remove(ObjectKey(key)).get().error().kind, Kind::kInvalidArgument);
  }
  EXPECT_EQ(server_->storeStats().requests, 0U);
}

TEST_F(ObjectStoreTest, NamesTheSettingThatIsWrong) {
  const std::pair<std::function<void(S3&, Options&)>, std::string> cases[] = {
      {[](S3& s, Options&) { s.endpoint = ""; }, "S3::endpoint"},
      {[](S3& s, Options&) { s.endpoint = "host"; }, "S3::endpoint"},
      {[](S3& s, Options&) { s.endpoint = "http://host/path"; }, "S3::endpoint"},
      {[](S3& s, Options&) { s.endpoint = "http://me@host"; }, "S3::endpoint"},
      {[](S3& s, Options&) { s.region = ""; }, "S3::region"},
      {[](S3& s, Options&) { s.bucket = ""; }, "S3::bucket"},
      {[](S3& s, Options&) { s.bucket = "a/b"; }, "S3::bucket"},
      {[](S3& s, Options&) { s.bucket = ".."; }, "S3::bucket"},
      {[](S3& s, Options&) {
         s.bucket = "Bucket";
         s.addressing = S3::Addressing::kVirtualHost;
       },
       "S3::bucket"},
      {[](S3&, Options& o) { o.url = "http://host"; }, "Options::url"},
      {[](S3&, Options& o) { o.headers["X-Amz-Date"] = "now"; }, "Options::headers"},
      {[](S3&, Options& o) { o.parallel = 0; }, "Options::parallel"},
  };
  for (const auto& [spoil, words] : cases) {
    S3 s3 = where();
    Options options;
    spoil(s3, options);
    const auto refused = ObjectStore::create(s3, options);
    ASSERT_FALSE(refused) << words;
    EXPECT_EQ(refused.error().kind, Kind::kInvalidArgument);
    EXPECT_THAT(refused.error().message, HasSubstr(words));
  }
  EXPECT_THAT(
      ObjectStore::create(TemplateService{.templates = "http://h", .store = ""}).error().message,
      HasSubstr("TemplateService::store"));
}

TEST_F(ObjectStoreTest, GetsPartsInOrderAndRanges) {
  const ObjectStore objects = store();
  const std::string content = sandbox::sampleBytes(300'000);
  ASSERT_TRUE(objects.put(kKey, Source::text(content)).get());
  const struct {
    ObjectRange range;
    std::string wanted;
  } cases[] = {
      {{}, content},
      {{.first = 5}, content.substr(5)},
      {{.first = 0, .length = 1_B}, content.substr(0, 1)},
      {{.first = 65'536, .length = 131'072_B}, content.substr(65'536, 131'072)},
      {{.first = 70'001, .length = 150'000_B}, content.substr(70'001, 150'000)},
      {{.first = 299'999, .length = 5_B}, content.substr(299'999)},
      {{.first = 1, .length = Bytes(~std::uint64_t{0})}, content.substr(1)},
  };
  for (const auto& [range, wanted] : cases) {
    SCOPED_TRACE(range.first);
    const GetOptions options{.ifExists = IfExists::kReplace, .range = range, .partSize = 64_KiB};
    std::string text;
    const auto transfer = objects.get(kKey, into(text), options);
    const auto got = transfer.get();
    ASSERT_TRUE(got) << got.error().message;
    EXPECT_EQ(got->size, Bytes(content.size()));
    EXPECT_TRUE(text == wanted);
    EXPECT_EQ(transfer.progress().done, wanted.size());
    EXPECT_EQ(transfer.progress().total, wanted.size());
    EXPECT_EQ(objects.get(kKey, path("copy"), options).get()->file, path("copy"));
    EXPECT_TRUE(contentOf(path("copy")) == wanted);
  }
  std::string text;
  const auto behind = objects.get(kKey, into(text), {.range = ObjectRange{.first = 300'000}}).get();
  EXPECT_EQ(behind.error().kind, Kind::kInvalidArgument);
  EXPECT_EQ(objects.get(kKey, into(text), {.partSize = 1_KiB}).get().error().kind,
            Kind::kInvalidArgument);
}

TEST_F(ObjectStoreTest, LeavesNothingOfAGetThatFails) {
  // A range that is another than the one that was signed would be refused.
  sandbox::SandboxOptions open;
  open.objectStore.requiresSignature = false;
  restart(open);
  const ObjectStore objects = ObjectStore::create(where()).value();
  const std::string content = sandbox::sampleBytes(300'000);
  ASSERT_TRUE(objects.put(kKey, Source::text(content)).get());
  std::filesystem::create_directory(path("to"));
  struct Case {
    std::string name;
    sandbox::FaultAction action;
    Kind kind;
    std::uint64_t skip = 2;
  };
  const Case cases[] = {
      {"cut", {.cutAfter = 100}, Kind::kNoConnection},
      {"short", {.shortenRange = 100}, Kind::kIntegrity},
      {"shifted", {.shiftRange = 1}, Kind::kIntegrity},
      {"whole", {.ignoreRange = true}, Kind::kNotOurService},
      {"other", {.headers = {{"ETag", "\"other\""}}}, Kind::kConflict},
      {"unsaid", {.headers = {{"Content-Range", std::nullopt}}}, Kind::kNotOurService},
      {"503", {.status = 503}, Kind::kServer},
      {"endless", {.total = "4611686018427387904"}, Kind::kInvalidArgument, 0},
      {"late and endless",
       {.latency = 20ms, .total = "4611686018427387904"},
       Kind::kInvalidArgument,
       0},
  };
  for (const Case& wanted : cases) {
    server_->clearFaults();
    server_->addFault(
        {.match = {.listener = "store", .skip = wanted.skip}, .action = wanted.action});
    const auto got = objects.get(kKey, path("to/file"), {.partSize = 64_KiB}).get();
    ASSERT_FALSE(got) << wanted.name;
    EXPECT_EQ(nameOf(got.error().kind), nameOf(wanted.kind)) << got.error().message;
    EXPECT_THAT(got.error().message, HasSubstr(kKey.text()));
    EXPECT_TRUE(std::filesystem::is_empty(path("to"))) << wanted.name;
  }
  server_->clearFaults();
  // Replaced between two parts.
  std::string text;
  const auto mixed = objects
                         .get(kKey,
                              [&](std::span<const std::byte>) {
                                if (text.empty()) {
                                  text = "first";
                                  ASSERT_TRUE(objects.put(kKey, Source::text(content)).get());
                                }
                              },
                              {.partSize = 64_KiB, .partsAtOnce = 1})
                         .get();
  ASSERT_FALSE(mixed);
  EXPECT_EQ(mixed.error().kind, Kind::kConflict) << mixed.error().message;
}

TEST_F(ObjectStoreTest, AFileThatAppearsDuringAGetStays) {
  const ObjectStore objects = store();
  ASSERT_TRUE(objects.put(kKey, Source::text("bytes")).get());
  server_->addFault({.match = {.listener = "store"}, .action = {.latency = -1ms}});
  const auto get = objects.get(kKey, path("file"));
  ASSERT_TRUE(eventually([this] { return server_->heldRequests() == 1; }));
  writeFile(path("file"), "of somebody else");
  server_->clearFaults();
  EXPECT_EQ(nameOf(get.get().error().kind), nameOf(Kind::kConflict));
  EXPECT_EQ(contentOf(path("file")), "of somebody else");
}

TEST_F(ObjectStoreTest, TheBucketMayBeInTheHostAndKeysMayBeTemporary) {
  sandbox::SandboxOptions temporary;
  temporary.objectStore.sessionToken = "to/ken+=";
  restart(temporary);
  const std::string port = server_->storeUrl().substr(server_->storeUrl().rfind(':'));
  const S3 inHost{.endpoint = "http://localhost" + port,
                  .region = "us-east-1",
                  .bucket = "bucket-of-ann",
                  .addressing = S3::Addressing::kVirtualHost};
  const auto storeWith = [](const S3& place, const std::string& token) {
    const Credentials keys{
        .accessKey = "sandbox", .secretKey = "sandbox-secret-key", .sessionToken = token};
    return ObjectStore::create(place, {.credentials = [keys] { return keys; }}).value();
  };
  const ObjectStore objects = storeWith(inHost, "to/ken+=");
  const ObjectKey key("bucket/a b+c.txt");
  const auto put = objects.put(key, Source::text("bytes")).get();
  ASSERT_TRUE(put) << put.error().message;
  ASSERT_TRUE(objects.head(key).get());
  ASSERT_TRUE(objects.list({.prefix = "bucket/"}).get());
  for (const auto& request : server_->requests()) {
    EXPECT_EQ(*request.header("Host"), "bucket-of-ann.localhost" + port) << request.method;
  }
  // The sandbox looks at the path alone: with the bucket in the host it is the key alone.
  std::string text;
  EXPECT_TRUE(storeWith(where(), "to/ken+=").get(ObjectKey("a b+c.txt"), into(text)).get());
  EXPECT_EQ(text, "bytes");
  for (const std::string wrong : {"marker-of-a-session", ""}) {
    const auto refused = storeWith(inHost, wrong).put(key, Source::text("x")).get();
    ASSERT_FALSE(refused) << wrong;
    EXPECT_EQ(nameOf(refused.error().kind), nameOf(Kind::kUnauthorized)) << wrong;
    EXPECT_THAT(refused.error().message + refused.error().responseExcerpt,
                Not(HasSubstr("marker-of-a-session")));
  }
}

TEST_F(ObjectStoreTest, AGetGoesOnBehindItsLastWholePart) {
  const ObjectStore objects = store();
  const std::string content = sandbox::sampleBytes(300'000);
  ASSERT_TRUE(objects.put(kKey, Source::text(content)).get());
  for (const bool isFile : {false, true}) {
    SCOPED_TRACE(isFile);
    server_->clearFaults();
    server_->clearStats();
    // The third range and all later ones get stuck within.
    server_->addFault({.match = {.listener = "store", .skip = 2},
                       .action = {.stallAfter = 1000, .stallFor = -1ms}});
    std::string text;
    const Destination to = isFile ? Destination(path("copy")) : Destination(into(text));
    auto got = objects.get(kKey, to, {.partSize = 64_KiB, .partsAtOnce = 1});
    ASSERT_TRUE(eventually([&] { return server_->storeStats().requests >= 3; }));
    // What is on its way counts.
    ASSERT_TRUE(eventually([&] { return got.progress().done >= 131'072 + 1000; }));
    got.pause();
    ASSERT_TRUE(eventually([&] { return got.state() == State::kPaused; }));
    server_->clearFaults();
    got.resume();
    const auto whole = got.get();
    ASSERT_TRUE(whole) << whole.error().message;
    EXPECT_EQ(askedFor("bytes=0-65535"), 1U);
    EXPECT_EQ(askedFor("bytes=65536-131071"), 1U);
    EXPECT_EQ(askedFor("bytes=131072-196607"), 2U);
    EXPECT_TRUE((isFile ? contentOf(path("copy")) : text) == content);
  }
}

TEST_F(ObjectStoreTest, OtherPartsComeBesideAFirstOneWhoseHeadIsLate) {
  const ObjectStore objects = store();
  const std::string content = sandbox::sampleBytes(300'000);
  ASSERT_TRUE(objects.put(kKey, Source::text(content)).get());
  const sandbox::FaultRule lateAndStuck{{.listener = "store", .count = 1},
                                        {.latency = 20ms, .stallAfter = 1000, .stallFor = -1ms}};
  for (const bool isFile : {false, true}) {
    SCOPED_TRACE(isFile);
    server_->clearStats();
    server_->addFault(lateAndStuck);
    std::string text;
    const Destination to = isFile ? Destination(path("copy")) : Destination(into(text));
    auto got = objects.get(kKey, to, {.partSize = 64_KiB});
    // All but the first, which may have begun before there were others to count with it.
    ASSERT_TRUE(eventually([&] { return got.progress().done >= 300'000 - 65'536; }));
    got.pause();
    ASSERT_TRUE(eventually([&] { return got.state() == State::kPaused; }));
    got.resume();
    const auto whole = got.get();
    ASSERT_TRUE(whole) << whole.error().message;
    EXPECT_EQ(askedFor("bytes=0-65535"), 2U);
    EXPECT_EQ(server_->storeStats().requests, 6U);
    EXPECT_TRUE((isFile ? contentOf(path("copy")) : text) == content);
    server_->clearFaults();
  }
  // The failure of another does not wait for it.
  server_->addFault(lateAndStuck);
  server_->addFault({{.listener = "store", .skip = 1}, {.status = 403}});
  const auto got = objects.get(kKey, path("none"), {.partSize = 64_KiB}).get();
  ASSERT_FALSE(got);
  EXPECT_EQ(nameOf(got.error().kind), nameOf(Kind::kUnauthorized)) << got.error().message;
}

TEST_F(ObjectStoreTest, TellsWhatAStoreRefuses) {
  struct Case {
    int status;
    std::string body;
    Kind kind;
  };
  const auto error = [](const std::string& code) {
    return "<?xml version=\"1.0\"?><Error><Code>" + code + "</Code><Message>why</Message></Error>";
  };
  const Case cases[] = {
      {404, error("NoSuchBucket"), Kind::kNotFound},
      {400, error("ExpiredToken"), Kind::kUnauthorized},
      {403, error("AccessDenied"), Kind::kUnauthorized},
      {503, error("SlowDown"), Kind::kThrottled},
      {400, error("RequestTimeout"), Kind::kTimeout},
      {500, error("InternalError"), Kind::kServer},
      {409, error("OperationAborted"), Kind::kConflict},
      {400, error("BadDigest"), Kind::kIntegrity},
      {418, error("SomethingNew"), Kind::kServer},
      {502, "<html>proxy</html>", Kind::kServer},
      {200, "<html>log in</html>", Kind::kNotOurService},
  };
  const ObjectStore objects = store();
  for (const Case& wanted : cases) {
    server_->clearFaults();
    server_->addFault({.match = {.listener = "store"},
                       .action = {.status = wanted.status,
                                  .body = wanted.body,
                                  .headers = {{"x-amz-request-id", "R7"}}}});
    const auto refused = objects.put(kKey, Source::text("x")).get();
    ASSERT_FALSE(refused) << wanted.body;
    EXPECT_EQ(nameOf(refused.error().kind), nameOf(wanted.kind)) << refused.error().message;
    EXPECT_EQ(refused.error().httpStatus, wanted.status);
    EXPECT_EQ(refused.error().requestId, "R7");
    EXPECT_THAT(refused.error().message, HasSubstr(kKey.text()));
    const auto noList = objects.list().get();
    ASSERT_FALSE(noList) << wanted.body;
    EXPECT_EQ(nameOf(noList.error().kind), nameOf(wanted.kind)) << noList.error().message;
  }
  server_->clearFaults();
  const auto expired = store({.accessKey = "sandbox",
                              .secretKey = "other-secret",
                              .sessionToken = "marker-of-a-session"})
                           .put(kKey, Source::text("x"))
                           .get();
  ASSERT_FALSE(expired);
  EXPECT_EQ(expired.error().kind, Kind::kUnauthorized);
  EXPECT_THAT(expired.error().message, HasSubstr("SignatureDoesNotMatch"));
  for (const char* secret : {"marker-of-a-session", "other-secret"}) {
    EXPECT_THAT(
        expired.error().message + expired.error().responseExcerpt + expired.error().cause.text,
        Not(HasSubstr(secret)));
  }
  EXPECT_EQ(store({.accessKey = "sandbox"}).head(kKey).get().error().kind, Kind::kUnauthorized);
}

TEST_F(ObjectStoreTest, UsesTheTemplatesOfAService) {
  const Credentials keys{.token = "t", .accessKey = "sandbox", .secretKey = "sandbox-secret-key"};
  const Options options{.credentials = [keys] { return keys; }, .retry = {.attempts = 1}};
  const TemplateService cases[] = {
      {.templates = server_->templateUrl(), .store = server_->storeUrl(), .region = "us-east-1"},
      {.templates = server_->templateUrl(),
       .store = server_->originUrl() + "/services/online/objects",
       .parameters = {{"sandbox_template", R"({"domain": "service"})"}}},
  };
  const std::string content = sandbox::sampleBytes(200'000);
  for (const TemplateService& service : cases) {
    SCOPED_TRACE(service.store);
    const ObjectStore objects = ObjectStore::create(service, options).value();
    const auto put = objects.put(kKey, Source::text(content)).get();
    ASSERT_TRUE(put) << put.error().message;
    std::string text;
    const auto got = objects.get(kKey, into(text), {.partSize = 64_KiB}).get();
    ASSERT_TRUE(got) << got.error().message;
    EXPECT_TRUE(text == content);
    EXPECT_EQ(objects.put(kKey, Source::text("")).get().error().kind, Kind::kInvalidArgument);
    EXPECT_EQ(objects.list().get().error().kind, Kind::kInvalidArgument);
    server_->addFault({.match = {.path = "/templates"}, .action = {.status = 503}});
    const auto failed = objects.put(kKey, Source::text("x")).get();
    ASSERT_FALSE(failed);
    EXPECT_THAT(failed.error().message, HasSubstr(kKey.text()));
    server_->clearFaults();
  }
}

TEST_F(ObjectStoreTest, ListsKeysAsTheyAre) {
  const ObjectStore objects = store();
  for (const std::string key : {"a b/\xC3\xA4+.txt", "a b/c&d<e>", "a b/n\n/x", "b", "photos/1"}) {
    ASSERT_TRUE(objects.put(ObjectKey(key), Source::text(key)).get());
  }
  const auto keysOf = [](const Outcome<std::vector<ObjectInfo>>& found) {
    std::vector<std::string> keys;
    if (!found) return std::vector{found.error().message};
    for (const ObjectInfo& entry : *found) {
      keys.push_back(entry.key.text() + (entry.isPrefix ? " and more" : ""));
      EXPECT_EQ(entry.isPrefix, !entry.size.has_value());
      EXPECT_EQ(entry.isPrefix, !entry.modified.has_value());
      if (!entry.isPrefix) {
        EXPECT_EQ(entry.size, Bytes(entry.key.text().size()));
      }
    }
    return keys;
  };
  EXPECT_THAT(keysOf(objects.list().get()),
              ElementsAre("a b/c&d<e>", "a b/n\n/x", "a b/\xC3\xA4+.txt", "b", "photos/1"));
  EXPECT_THAT(keysOf(objects.list({.delimiter = "/"}).get()),
              ElementsAre("a b/ and more", "b", "photos/ and more"));
  EXPECT_THAT(keysOf(objects.list({.prefix = "a b/", .delimiter = "/"}).get()),
              ElementsAre("a b/c&d<e>", "a b/n\n/ and more", "a b/\xC3\xA4+.txt"));
  EXPECT_THAT(keysOf(objects.list({.prefix = "a b/", .most = 2}).get()),
              ElementsAre("a b/c&d<e>", "a b/n\n/x"));
  EXPECT_THAT(keysOf(objects.list({.most = 0}).get()), ElementsAre());
  EXPECT_THAT(keysOf(objects.list({.prefix = "none"}).get()), ElementsAre());
}

TEST_F(ObjectStoreTest, AsksForPagesUntilTheEnd) {
  const auto page = [](const std::string& key, const std::string& next) {
    return "<ListBucketResult><Contents><Key>" + key + "</Key></Contents><IsTruncated>" +
           (next.empty() ? "false" : "true") + "</IsTruncated><NextContinuationToken>" + next +
           "</NextContinuationToken></ListBucketResult>";
  };
  const auto answer = [this](const std::string& body, std::uint64_t skip = 0) {
    server_->addFault(
        {.match = {.listener = "store", .skip = skip}, .action = {.status = 200, .body = body}});
  };
  answer(page("b", ""), 1);
  answer(page("a", "t+/="));
  const auto found = store().list().get();
  ASSERT_TRUE(found) << found.error().message;
  EXPECT_EQ(found->size(), 2U);
  EXPECT_EQ(sent("GET", "continuation-token=t%2B%2F%3D"), 1U);

  for (const std::string& endless : {page("a", "t"), page("", "t"), std::string("<Other/>")}) {
    server_->clearFaults();
    answer(endless);
    EXPECT_EQ(store().list().get().error().kind, Kind::kNotOurService) << endless;
  }
}

#ifdef VARO_OBJECT_EXAMPLE
TEST_F(ObjectStoreTest, TheExampleDoesWhatItSays) {
  writeFile(path("file"), "bytes");
  test::ChildProcess example(
      {.program = VARO_OBJECT_EXAMPLE,
       .arguments = {server_->storeUrl(), kBucket, path("file"), path("copy")},
       .environment = {},
       .directory = directory_,
       .input = {}});
  EXPECT_EQ(example.wait(), 0) << example.errors();
  EXPECT_THAT(example.output(), HasSubstr("photos/Ann 1.jpg has 5 bytes"));
  EXPECT_EQ(contentOf(path("copy")), "bytes");
  EXPECT_TRUE(store().list().get()->empty());
}
#endif

}  // namespace
}  // namespace varo
