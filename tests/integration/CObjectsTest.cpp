#include "tests/support/CTransfers.h"
#include "tests/support/Files.h"
#include "tests/support/SandboxFixture.h"
#include "varo/varo.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>

namespace varo {
namespace {

using test::contentOf;
using test::endOf;
using test::Handle;
using test::owned;

class CObjectsTest : public sandbox::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    const std::string endpoint = server_->storeUrl();
    varo_s3 where = {};
    where.size = sizeof where;
    where.endpoint = endpoint.c_str();
    where.region = "us-east-1";
    where.bucket = "bucket";
    varo_options options = {};
    options.size = sizeof options;
    options.credentials = [](void* /*user*/, varo_credentials* credentials) {
      return varo_credentials_set_keys(credentials, "sandbox", "sandbox-secret-key", nullptr) ==
                     VARO_OK
                 ? 0
                 : 1;
    };
    ASSERT_EQ(varo_objects_create_s3(&where, &options, &objects_, nullptr), VARO_OK);
  }
  void TearDown() override { varo_objects_free(objects_); }

  varo_objects* objects_ = nullptr;
};

TEST_F(CObjectsTest, PutsLooksUpListsGetsARangeAndRemoves) {
  varo_put_options options = {};
  options.size = sizeof options;
  options.content_type = "image/jpeg";
  const Handle put =
      owned(varo_objects_put_bytes(objects_, "photos/Ann 1.jpg", "0123456789", 10, &options));
  ASSERT_EQ(varo_transfer_wait(put.get(), -1), VARO_OK);
  EXPECT_EQ(*server_->requests().front().header("Content-Type"), "image/jpeg");
  const Handle head = owned(varo_objects_head(objects_, "photos/Ann 1.jpg"));
  ASSERT_EQ(varo_transfer_wait(head.get(), -1), VARO_OK);
  const varo_object* object = varo_outcome_object(varo_transfer_outcome(head.get()), 0);
  EXPECT_STREQ(object->key, "photos/Ann 1.jpg");
  EXPECT_EQ(object->bytes, 10);
  EXPECT_GT(object->modified_ms, 1'600'000'000'000);
  EXPECT_STREQ(object->entity_tag,
               varo_outcome_object(varo_transfer_outcome(put.get()), 0)->entity_tag);

  varo_object_list_options delimited = {};
  delimited.size = sizeof delimited;
  delimited.delimiter = "/";
  const Handle list = owned(varo_objects_list(objects_, &delimited));
  ASSERT_EQ(varo_transfer_wait(list.get(), -1), VARO_OK);
  ASSERT_EQ(varo_outcome_count(varo_transfer_outcome(list.get())), 1U);
  EXPECT_STREQ(varo_outcome_object(varo_transfer_outcome(list.get()), 0)->key, "photos/");
  EXPECT_EQ(varo_outcome_object(varo_transfer_outcome(list.get()), 0)->is_prefix, 1);

  std::string bytes;
  const varo_write_fn take = [](void* user, const void* piece, std::size_t length) {
    static_cast<std::string*>(user)->append(static_cast<const char*>(piece), length);
    return 0;
  };
  varo_get_options range = {};
  range.size = sizeof range;
  range.range_first = 3;
  range.range_length = 4;
  EXPECT_EQ(endOf(varo_objects_get_sink(objects_, "photos/Ann 1.jpg", take, &bytes, &range)).first,
            VARO_OK);
  EXPECT_EQ(bytes, "3456");
  range.keep_parts = 1;  // for files alone
  EXPECT_EQ(endOf(varo_objects_get_sink(objects_, "photos/Ann 1.jpg", take, &bytes, &range)).first,
            VARO_INVALID_ARGUMENT);
  const std::string path = directory_ + "/ann.jpg";
  const Handle get =
      owned(varo_objects_get_path(objects_, "photos/Ann 1.jpg", path.c_str(), nullptr));
  ASSERT_EQ(varo_transfer_wait(get.get(), -1), VARO_OK);
  EXPECT_EQ(varo_outcome_path(varo_transfer_outcome(get.get())), path);
  EXPECT_EQ(contentOf(path), "0123456789");
  EXPECT_EQ(endOf(varo_objects_remove(objects_, "photos/Ann 1.jpg")).first, VARO_OK);
  EXPECT_EQ(endOf(varo_objects_head(objects_, "photos/Ann 1.jpg")).first, VARO_NOT_FOUND);
}

TEST_F(CObjectsTest, UploadInPartsTellsItsNameAndIsNamedByItsFailure) {
  server_->addFault(
      {.match = {.method = "PUT", .query = "partNumber=2"}, .action = {.status = 403}});
  std::string begun;
  varo_put_options options = {};
  options.size = sizeof options;
  options.part_size = 5 << 20;
  options.keep_parts = 1;
  options.user = &begun;
  options.on_begun = [](void* user, const char* upload) {
    *static_cast<std::string*>(user) = upload;
  };
  const std::string content(std::size_t{6} << 20, 'x');
  const auto put = [&] {
    return owned(varo_objects_put_bytes(objects_, "a", content.data(), content.size(), &options));
  };
  const Handle failed = put();
  EXPECT_EQ(varo_transfer_wait(failed.get(), -1), VARO_UNAUTHORIZED);
  const varo_failure* failure = varo_outcome_failure(varo_transfer_outcome(failed.get()));
  EXPECT_FALSE(begun.empty());
  EXPECT_EQ(failure->upload, begun);
  server_->clearFaults();
  options.resume = failure->upload;
  const Handle resumed = put();
  EXPECT_EQ(varo_transfer_wait(resumed.get(), -1), VARO_OK);
  options.parts_at_once = 65;
  EXPECT_EQ(varo_transfer_wait(put().get(), -1), VARO_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace varo
