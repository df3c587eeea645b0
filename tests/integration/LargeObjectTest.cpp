#include "tests/support/AnswersOnce.h"
#include "tests/support/Await.h"
#include "tests/support/Files.h"
#include "tests/support/ObjectStoreFixture.h"

#include <gmock/gmock.h>

#include <string>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using test::writeFile;
using testing::HasSubstr;

/// Of objects in parts, in a store that tells everybody what is left of them.
class LargeObjectTest : public ObjectStoreTest {
 protected:
  void SetUp() override {
    sandbox::SandboxOptions open;
    open.objectStore.requiresSignature = false;
    restart(open);
    writeFile(path("large"), content_);
  }

  /// Five parts: the first alone, then the others at once.
  [[nodiscard]] Transfer<ObjectInfo> put(const ObjectStore& objects,
                                         PutOptions options = {}) const {
    options.partSize = 5_MiB;
    return objects.put(kKey, Source::file(path("large")), options);
  }
  [[nodiscard]] bool isWhole() const {
    std::string text;
    return store().get(kKey, into(text)).get().has_value() && text == content_;
  }
  /// Whether the store still has an upload that nobody has ended.
  [[nodiscard]] bool hasUpload() const {
    const auto answer =
        sandbox::httpRequest("GET", server_->storeUrl() + "/" + kBucket + "?uploads", "", {});
    EXPECT_THAT(answer.body, HasSubstr("ListMultipartUploadsResult"));
    return answer.body.find("<Upload>") != std::string::npos;
  }
  /// All parts but the first get stuck.
  void holdUpLaterParts() {
    for (const char* later : {"partNumber=2", "partNumber=3", "partNumber=4", "partNumber=5"}) {
      server_->addFault({.match = {.query = later}, .action = {.latency = -1ms}});
    }
  }
  /// Returns when the client knows that the store has the first part: only then others follow.
  [[nodiscard]] bool waitsForLaterParts() const {
    return eventually([this] { return server_->heldRequests() == 4; });
  }

  const std::string content_ = sandbox::sampleBytes((std::size_t{20} << 20U) + 3);
};

TEST_F(LargeObjectTest, GoesUpInPartsAndASmallOneAtOnce) {
  const ObjectStore objects = store();
  std::string begun;
  auto upload = put(objects, {.contentType = "video/mp4",
                              .onBegun = [&](const UploadId& id) { begun = id.text(); }});
  const auto made = upload.get();
  ASSERT_TRUE(made) << made.error().message;
  EXPECT_EQ(made->size, Bytes(content_.size()));
  EXPECT_NE(begun, "");
  EXPECT_EQ(upload.progress().done, content_.size());
  // A request is noted when it has been answered.
  EXPECT_TRUE(eventually([&] { return sent("PUT", "partNumber") == 5; }));
  EXPECT_EQ(*server_->requests().front().header("Content-Type"), "video/mp4");
  const auto found = objects.head(kKey).get();
  ASSERT_TRUE(found);
  EXPECT_EQ(found->entityTag, made->entityTag);
  EXPECT_TRUE(isWhole());
  EXPECT_FALSE(hasUpload());

  ASSERT_TRUE(objects.put(kKey, Source::text(content_), {.partSize = 21_MiB}).get());
  EXPECT_TRUE(isWhole());
  EXPECT_EQ(sent("PUT", "partNumber"), 5U);
  EXPECT_EQ(sent("POST", "uploads"), 1U);
}

TEST_F(LargeObjectTest, ProgressCountsWhatIsOnItsWay) {
  // The store has taken nothing of them yet.
  server_->addFault({.match = {.method = "PUT"}, .action = {.latency = -1ms}});
  for (const Bytes partSize : {5_MiB, 21_MiB}) {
    const auto upload = store().put(kKey, Source::file(path("large")), {.partSize = partSize});
    EXPECT_TRUE(eventually([&] { return upload.progress().done > 0; })) << partSize.count;
    EXPECT_EQ(upload.progress().total, content_.size());
  }
}

TEST_F(LargeObjectTest, ResumeSendsTheMissingPartsOnly) {
  holdUpLaterParts();
  const ObjectStore objects = store();
  auto upload = put(objects);
  ASSERT_TRUE(waitsForLaterParts());
  upload.pause();
  ASSERT_TRUE(eventually([&] { return upload.state() == State::kPaused; }));
  EXPECT_TRUE(hasUpload());
  server_->clearFaults();
  upload.resume();
  const auto made = upload.get();
  ASSERT_TRUE(made) << made.error().message;
  EXPECT_TRUE(isWhole());
  EXPECT_EQ(sent("PUT", "partNumber=1"), 1U);
}

TEST_F(LargeObjectTest, SendsPartsOnceMoreOfWhichTheStoreHasOthers) {
  // As where an earlier one of the same number comes late and takes its place.
  server_->addFault({.match = {.query = "partNumber=2", .count = 1},
                     .action = {.headers = {{"ETag", "\"of another\""}}}});
  const auto made = put(store()).get();
  ASSERT_TRUE(made) << made.error().message;
  EXPECT_TRUE(isWhole());
  EXPECT_EQ(sent("PUT", "partNumber=2"), 2U);
  EXPECT_EQ(sent("PUT", "partNumber"), 6U) << "no other is sent again";
}

TEST_F(LargeObjectTest, LeavesNothingWhenGivenUpUnlessItIsToBeKept) {
  holdUpLaterParts();
  // The end needs no further answer.
  test::AnswersOnce once({.accessKey = "sandbox", .secretKey = "sandbox-secret-key"});
  auto cancelled = put(ObjectStore::create(where(), {.credentials = once.provider()}).value());
  ASSERT_TRUE(waitsForLaterParts());
  cancelled.cancel();
  EXPECT_EQ(cancelled.get().error().kind, Kind::kCancelled);
  EXPECT_FALSE(cancelled.get().error().upload);
  EXPECT_FALSE(hasUpload());

  server_->clearFaults();
  server_->addFault({.match = {.query = "partNumber=2"}, .action = {.status = 503}});
  const auto failed = put(store()).get();
  EXPECT_EQ(failed.error().kind, Kind::kServer) << failed.error().message;
  EXPECT_THAT(failed.error().message, HasSubstr("part 2"));
  EXPECT_FALSE(failed.error().upload);
  EXPECT_FALSE(hasUpload());
}

TEST_F(LargeObjectTest, AnotherPutGoesOnWithThePartsThatWereKept) {
  holdUpLaterParts();
  auto upload = put(store(), {.keepParts = true});
  ASSERT_TRUE(waitsForLaterParts());
  upload.cancel();
  const auto kept = upload.get();
  ASSERT_TRUE(kept.error().upload);
  EXPECT_TRUE(hasUpload());
  server_->clearFaults();
  const auto unread = store()
                          .put(kKey, Source::file(path("none")),
                               {.keepParts = true, .resume = *kept.error().upload})
                          .get();
  EXPECT_EQ(unread.error().upload, kept.error().upload) << "still there, and named";
  const auto resumed = put(store(), {.resume = *kept.error().upload}).get();
  ASSERT_TRUE(resumed) << resumed.error().message;
  EXPECT_TRUE(isWhole());
  EXPECT_EQ(sent("PUT", "partNumber=1"), 1U);
  const auto late = put(store(), {.resume = *kept.error().upload}).get();
  EXPECT_EQ(late.error().kind, Kind::kNotFound) << late.error().message;
}

TEST_F(LargeObjectTest, AResumeUsesNoPartOfAnotherVersionOfTheSource) {
  server_->addFault({.match = {.query = "partNumber=3"}, .action = {.status = 503}});
  const auto kept = put(store(), {.keepParts = true, .partsAtOnce = 1}).get();
  ASSERT_TRUE(kept.error().upload);
  server_->clearFaults();
  std::string changed = content_;
  ++changed[0];  // in the first of two parts that the store has
  writeFile(path("large"), changed);
  const auto resumed = put(store(), {.resume = *kept.error().upload}).get();
  ASSERT_TRUE(resumed) << resumed.error().message;
  std::string text;
  ASSERT_TRUE(store().get(kKey, into(text)).get());
  EXPECT_TRUE(text == changed);
  EXPECT_EQ(sent("PUT", "partNumber=1"), 2U);
  EXPECT_EQ(sent("PUT", "partNumber=2"), 1U);
}

TEST_F(LargeObjectTest, AResumeThatCannotBeginEndsTheUpload) {
  server_->addFault({.match = {.query = "partNumber=2"}, .action = {.status = 503}});
  const auto kept = put(store(), {.keepParts = true}).get();
  ASSERT_TRUE(kept.error().upload);
  const Source none = Source::file(path("none"));
  // Whose name is wrong has no upload, and nothing may be sent to its address.
  const auto wrong = store().put(ObjectKey(""), none, {.resume = *kept.error().upload}).get();
  EXPECT_EQ(wrong.error().kind, Kind::kInvalidArgument);
  EXPECT_TRUE(hasUpload());
  const auto unread = store().put(kKey, none, {.resume = *kept.error().upload}).get();
  EXPECT_EQ(unread.error().kind, Kind::kLocalFile);
  EXPECT_FALSE(unread.error().upload);
  EXPECT_FALSE(hasUpload());
  EXPECT_EQ(sent("DELETE"), 1U);
}

TEST_F(LargeObjectTest, AStoreThatJoinsThePartsMaySendBlanksUntilItIsDone) {
  const std::string result =
      "<CompleteMultipartUploadResult><ETag>\"joined\"</ETag></CompleteMultipartUploadResult>";
  server_->addFault(
      {.match = {.method = "POST", .query = "uploadId"},
       .action = {.status = 200,
                  .body = " \n  <?xml version=\"1.0\" encoding=\"UTF-8\"?>\n " + result}});
  const auto made = put(store()).get();
  ASSERT_TRUE(made) << made.error().message;
  EXPECT_EQ(made->entityTag, "joined");
}

TEST_F(LargeObjectTest, NoticesWhatAStoreDoesNotDo) {
  struct Case {
    std::string name;
    sandbox::FaultRule rule;
    Kind kind;
    bool leavesUpload = false;
  };
  const std::string error = "<Error><Code>SlowDown</Code><Message>m</Message></Error>";
  const Case cases[] = {
      {"refusal with status 200",
       {.match = {.method = "POST", .query = "uploadId"}, .action = {.status = 200, .body = error}},
       Kind::kThrottled},
      {"no name of the upload",
       {.match = {.method = "POST", .query = "uploads"},
        .action = {.status = 200, .body = "<InitiateMultipartUploadResult/>"}},
       Kind::kNotOurService},
      {"no ETag",
       {.match = {.query = "partNumber=3"}, .action = {.headers = {{"ETag", std::nullopt}}}},
       Kind::kNotOurService},
      {"other ETag",
       {.match = {.query = "partNumber=1"}, .action = {.headers = {{"ETag", "\"other\""}}}},
       Kind::kIntegrity},
      {"lost end",
       {.match = {.method = "DELETE"}, .action = {.status = 500}},
       Kind::kCancelled,
       true},
  };
  for (const Case& wanted : cases) {
    SCOPED_TRACE(wanted.name);
    server_->clearFaults();
    server_->addFault(wanted.rule);
    if (wanted.leavesUpload) holdUpLaterParts();
    auto upload = put(store());
    if (wanted.leavesUpload) {
      ASSERT_TRUE(waitsForLaterParts());
      upload.cancel();
    }
    const auto outcome = upload.get();
    ASSERT_FALSE(outcome);
    EXPECT_EQ(nameOf(outcome.error().kind), nameOf(wanted.kind)) << outcome.error().message;
    EXPECT_EQ(outcome.error().upload.has_value(), wanted.leavesUpload);
    EXPECT_EQ(hasUpload(), wanted.leavesUpload);
  }
}

}  // namespace
}  // namespace varo
