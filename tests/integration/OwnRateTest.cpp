#include "tests/support/ObjectStoreFixture.h"

#include <optional>
#include <string>

namespace varo {
namespace {

using namespace std::chrono_literals;

using OwnRateTest = ObjectStoreTest;

TEST_F(OwnRateTest, HoldsBackItsTransferAndNoOther) {
  const std::string content = sandbox::sampleBytes(64 << 10);
  const FileClient files = FileClient::create({.url = server_->url()}).value();
  const FileId id(storedFile(content));
  const ObjectStore objects = store();
  ASSERT_TRUE(objects.put(kKey, Source::text(content)).get());
  const ObjectStore templates =
      ObjectStore::create(
          TemplateService{.templates = server_->templateUrl(),
                          .store = server_->originUrl() + "/services/online/objects",
                          .parameters = {{"sandbox_template", R"({"domain": "service"})"}}})
          .value();
  const Sink nowhere = [](std::span<const std::byte>) {};
  const auto check = [](const char* what, auto begin) {
    SCOPED_TRACE(what);
    auto slow = begin(1_B);  // its first piece is the last one of this day
    const auto other = begin(std::nullopt).get();
    ASSERT_TRUE(other) << other.error().message;
    ASSERT_FALSE(slow.waitFor(0ms));
    slow.cancel();
    EXPECT_EQ(slow.get().error().kind, Kind::kCancelled);
    const auto none = begin(0_B).get();
    ASSERT_FALSE(none);
    EXPECT_EQ(none.error().kind, Kind::kInvalidArgument);
    EXPECT_NE(none.error().message.find("perSecond"), std::string::npos);
  };
  using Rate = std::optional<Bytes>;
  check("upload", [&](Rate rate) {
    return files.upload(Source::text(content), {.name = "a", .perSecond = rate});
  });
  check("download", [&](Rate rate) { return files.download(id, nowhere, {.perSecond = rate}); });
  check("put", [&](Rate rate) {
    return objects.put(ObjectKey(rate ? "slow" : "b"), Source::text(content), {.perSecond = rate});
  });
  check("get", [&](Rate rate) { return objects.get(kKey, nowhere, {.perSecond = rate}); });
  check("put by a template", [&](Rate rate) {
    return templates.put(ObjectKey(rate ? "slow" : "b"), Source::text(content),
                         {.perSecond = rate});
  });
}

}  // namespace
}  // namespace varo
