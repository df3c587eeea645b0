#include "tests/support/CInterfaceFixture.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "varo/varo.h"

#include <gmock/gmock.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::contentOf;
using test::endOf;
using test::Handle;
using test::owned;
using testing::HasSubstr;

class CInterfaceTest : public test::CInterfaceFixture {};

TEST_F(CInterfaceTest, ExampleOfFilesUploadsListsDownloadsRemovesAndCancels) {
  // The second upload, which the program gives up, would never end.
  server_->addFault({.match = {.method = "PUT", .path = "/bytes/", .skip = 1},
                     .action = {.stallAfter = 1, .stallFor = -1ms}});
  const std::string photo = directory_ + "/photo.jpg";
  const std::string copy = directory_ + "/copy.jpg";
  test::writeFile(photo, sandbox::sampleBytes(300'000));
  test::ChildProcess program({VARO_C_FILES, {url_, photo, copy}, {}, directory_});
  EXPECT_EQ(program.wait(), 0) << program.errors();
  EXPECT_EQ(contentOf(copy), contentOf(photo));
  for (const std::string& words :
       {std::string("uploaded photo.jpg"), std::string("found photo.jpg, 300000 bytes, of 2026"),
        "downloaded to " + copy, std::string("the other upload: cancelled")}) {
    EXPECT_THAT(program.output(), HasSubstr(words));
  }
  EXPECT_TRUE(list().empty());
}

TEST_F(CInterfaceTest, NullIsAnErrorThatNamesTheArgument) {
  const varo_entry entry = varo_text("a", nullptr);
  const std::vector<std::pair<varo_transfer*, std::string>> transfers = {
      {varo_files_list(nullptr, nullptr, 0), "files is NULL"},
      {varo_files_list(files_, nullptr, 1), "terms is NULL"},
      {varo_files_list(files_, &entry, 1), "terms[0], \"a\", has no text"},
      {varo_files_upload_path(nullptr, "a", nullptr), "files is NULL"},
      {varo_files_upload_path(files_, nullptr, nullptr), "path is NULL"},
      {varo_files_upload_bytes(files_, nullptr, 1, nullptr), "bytes is NULL"},
      {varo_files_upload_reader(files_, nullptr, nullptr, 1, nullptr), "read is NULL"},
      {varo_files_download_path(nullptr, "id", "a", nullptr), "files is NULL"},
      {varo_files_download_path(files_, nullptr, "a", nullptr), "id is NULL"},
      {varo_files_download_path(files_, "id", nullptr, nullptr), "path is NULL"},
      {varo_files_download_sink(files_, "id", nullptr, nullptr, nullptr), "write is NULL"},
      {varo_files_update(nullptr, "id", nullptr, 0), "files is NULL"},
      {varo_files_update(files_, nullptr, nullptr, 0), "id is NULL"},
      {varo_files_update(files_, "id", nullptr, 2), "metadata is NULL"},
      {varo_files_remove(nullptr, "id"), "files is NULL"},
      {varo_files_remove(files_, nullptr), "id is NULL"},
      {varo_files_remove_where(nullptr, nullptr, 0), "files is NULL"},
      {varo_objects_put_path(nullptr, "a", "a", nullptr), "objects is NULL"},
      {varo_objects_get_path(nullptr, "a", "a", nullptr), "objects is NULL"},
      {varo_objects_head(nullptr, "a"), "objects is NULL"},
      {varo_objects_list(nullptr, nullptr), "objects is NULL"},
      {varo_objects_remove(nullptr, "a"), "objects is NULL"},
      {varo_blobs_fetch(nullptr, nullptr), "blobs is NULL"},
      {varo_blobs_fetch_all(nullptr, nullptr, 0), "blobs is NULL"},
  };
  for (const auto& [transfer, words] : transfers) {
    const auto [code, message] = endOf(transfer);
    EXPECT_EQ(code, VARO_INVALID_ARGUMENT) << words;
    EXPECT_THAT(message, HasSubstr(words));
  }
  for (varo_outcome* outcome :
       {varo_blobs_of(nullptr, nullptr, nullptr, nullptr, 0), varo_blobs_state(nullptr, nullptr),
        varo_blobs_states(nullptr), varo_blobs_path(nullptr, nullptr),
        varo_blobs_remove(nullptr, nullptr, VARO_FILE_NOW)}) {
    EXPECT_EQ(varo_outcome_code(outcome), VARO_INVALID_ARGUMENT);
    EXPECT_STREQ(varo_outcome_failure(outcome)->message, "The argument blobs is NULL");
    varo_outcome_free(outcome);
  }
  varo_progress progress = {};
  varo_failure* failure = nullptr;
  varo_files* files = nullptr;
  varo_blobs* blobs = nullptr;
  varo_objects* objects = nullptr;
  varo_watch* watch = nullptr;
  const std::vector<varo_code> codes = {
      varo_blobs_open(nullptr, "a", nullptr, &blobs, nullptr),
      varo_blobs_open("a", "a", nullptr, &blobs, nullptr),
      varo_blobs_watch(nullptr, nullptr, nullptr, &watch, nullptr),
      varo_objects_create_s3(nullptr, nullptr, &objects, nullptr),
      varo_objects_create_templates(nullptr, nullptr, &objects, nullptr),
      varo_files_create(nullptr, &files, nullptr),
      varo_files_create(&options_, nullptr, &failure),
      varo_credentials_set_token(nullptr, "a"),
      varo_credentials_set_keys(nullptr, "a", "b", nullptr),
      varo_credentials_refuse(nullptr, "a"),
      varo_transfer_on_progress(nullptr, nullptr, nullptr),
      varo_transfer_on_done(nullptr, nullptr, nullptr),
      varo_transfer_cancel(nullptr),
      varo_transfer_pause(nullptr),
      varo_transfer_resume(nullptr),
      varo_transfer_progress(nullptr, &progress),
      varo_transfer_wait(nullptr, -1),
      varo_outcome_code(nullptr),
  };
  for (std::size_t at = 0; at < codes.size(); ++at) {
    EXPECT_EQ(codes[at], VARO_INVALID_ARGUMENT) << at;
  }
  ASSERT_NE(failure, nullptr);
  EXPECT_STREQ(failure->message, "The argument files is NULL");
  varo_failure_free(failure);
  EXPECT_EQ(varo_transfer_state(nullptr), VARO_DONE);
  EXPECT_EQ(varo_transfer_outcome(nullptr), nullptr);
  EXPECT_STREQ(varo_outcome_failure(nullptr)->message, "There is no outcome");
  EXPECT_EQ(varo_outcome_count(nullptr), 0U);
  EXPECT_EQ(varo_outcome_number(nullptr), 0U);
  EXPECT_EQ(varo_outcome_path(nullptr), nullptr);
  EXPECT_EQ(varo_outcome_file(nullptr, 0), nullptr);
  EXPECT_EQ(varo_file_entry(nullptr, "a"), nullptr);
  EXPECT_EQ(varo_outcome_blob(nullptr, 0), nullptr);
  EXPECT_EQ(varo_outcome_blob_refs(nullptr), nullptr);
  EXPECT_EQ(varo_outcome_object(nullptr, 0), nullptr);
  varo_blobs_free(nullptr);
  varo_objects_free(nullptr);
  varo_watch_release(nullptr);
  varo_transfer_release(nullptr);
  varo_transfer_detach(nullptr);
  varo_outcome_free(nullptr);
  varo_failure_free(nullptr);
}

TEST_F(CInterfaceTest, StructuresOfOtherVersionsAreReadAsFarAsBothKnow) {
  struct Later {
    varo_options options;
    std::array<std::uint64_t, 2> added;
  };
  struct Case {
    std::size_t size;
    std::uint64_t added;
    varo_code code;
    std::string words;
  };
  const std::vector<Case> cases = {
      {0, 0, VARO_INVALID_ARGUMENT, "varo_options::size is 0"},
      {sizeof(varo_options) - 1, 0, VARO_INVALID_ARGUMENT, "varo_options::size is"},
      {std::size_t{1} << 40, 0, VARO_INVALID_ARGUMENT, "varo_options::size is"},
      {sizeof(varo_options), 7, VARO_INVALID_ARGUMENT, "Options::stallTimeout"},
      {offsetof(varo_options, stall_timeout_ms), 7, VARO_OK, ""},
      {offsetof(varo_options, retry_attempts), 7, VARO_INVALID_ARGUMENT, "Options::stallTimeout"},
      {sizeof(Later), 0, VARO_INVALID_ARGUMENT, "Options::stallTimeout"},
      {sizeof(Later), 7, VARO_INVALID_ARGUMENT, "that this version of the library lacks"},
  };
  for (const Case& wanted : cases) {
    Later later = {options_, {0, wanted.added}};
    later.options.size = wanted.size;
    later.options.stall_timeout_ms = -1;
    // The padding at the end of the first version, of which nobody knows what it holds.
    constexpr std::size_t kEnd = offsetof(varo_options, log_level) + sizeof(varo_log_level);
    std::memset(reinterpret_cast<char*>(&later.options) + kEnd, 0xff,
                offsetof(varo_options, retry_attempts) - kEnd);
    const auto [code, message] = creation(&later.options);
    EXPECT_EQ(code, wanted.code) << wanted.size;
    EXPECT_THAT(message, HasSubstr(wanted.words));
  }
  const Handle done = owned(varo_files_list(files_, nullptr, 0));
  varo_progress progress = {};
  EXPECT_EQ(varo_transfer_progress(done.get(), &progress), VARO_INVALID_ARGUMENT);
  progress.size = offsetof(varo_progress, seconds_left);
  progress.seconds_left = 42;
  EXPECT_EQ(varo_transfer_progress(done.get(), &progress), VARO_OK);
  EXPECT_EQ(progress.seconds_left, 42);
}

TEST_F(CInterfaceTest, EntriesKeepTypesAndNulsAndAreRefusedWhereSomethingIsMissing) {
  varo_entry nul = varo_text("nul", "a\0b");
  nul.text_length = 3;
  const std::array metadata = {nul, varo_boolean("yes", 2), varo_integer("many", INT64_MAX),
                               varo_number("half", 0.5)};
  varo_upload_options options = named_;
  options.metadata = metadata.data();
  options.metadata_count = metadata.size();
  const Handle upload = owned(varo_files_upload_bytes(files_, "x", 1, &options));
  ASSERT_EQ(varo_transfer_wait(upload.get(), -1), VARO_OK);
  const Handle list = owned(varo_files_list(files_, &metadata[2], 1));
  ASSERT_EQ(varo_transfer_wait(list.get(), -1), VARO_OK);
  const varo_file* file = varo_outcome_file(varo_transfer_outcome(list.get()), 0);
  ASSERT_NE(file, nullptr);
  const varo_entry* text = varo_file_entry(file, "nul");
  EXPECT_EQ(std::string(text->text, text->text_length), std::string("a\0b", 3));
  EXPECT_EQ(varo_file_entry(file, "yes")->type, VARO_BOOLEAN);
  EXPECT_EQ(varo_file_entry(file, "yes")->boolean, 1);
  EXPECT_EQ(varo_file_entry(file, "many")->integer, INT64_MAX);
  EXPECT_EQ(varo_file_entry(file, "half")->number, 0.5);

  const std::array twice = {varo_integer("a", 1), varo_integer("a", 2)};
  const std::array<varo_entry, 1> untyped = {varo_entry{"a", varo_type{}, {}, 0}};
  EXPECT_THAT(endOf(varo_files_update(files_, "id", twice.data(), 2)).second,
              HasSubstr("metadata[1], \"a\", was given before"));
  EXPECT_THAT(endOf(varo_files_update(files_, "id", untyped.data(), 1)).second,
              HasSubstr("unknown type 0"));
}

TEST_F(CInterfaceTest, ExampleOfBlobsFetchesAllPhotosAndSaysWhatBecameOfEach) {
  const std::string database = directory_ + "/staff.db";
  const std::string photos = directory_ + "/photos";
  const auto error = server_->makeExampleDatabase(database);
  ASSERT_FALSE(error) << error->message;
  std::filesystem::create_directory(photos);
  test::ChildProcess program(
      {VARO_C_BLOBS, {server_->blobUrl(), database, photos}, {}, directory_});
  EXPECT_EQ(program.wait(), 0) << program.errors();
  for (const std::string& words : {std::string(" is available\n"), "photo of 1: " + photos + "/"}) {
    EXPECT_THAT(program.output(), testing::HasSubstr(words));
  }
}

}  // namespace
}  // namespace varo
