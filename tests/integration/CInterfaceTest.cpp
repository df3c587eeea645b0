#include "Platform/Foundation/Mutex.h"
#include "tests/support/Await.h"
#include "tests/support/CTransfers.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Files.h"
#include "tests/support/SandboxFixture.h"
#include "varo/varo.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using sandbox::FaultRule;
using test::contentOf;
using test::endOf;
using test::Handle;
using test::owned;
using testing::HasSubstr;

class CInterfaceTest : public sandbox::SandboxTest {
 protected:
  void SetUp() override {
    SandboxTest::SetUp();
    url_ = server_->url();
    options_.size = sizeof options_;
    options_.url = url_.c_str();
    options_.retry_attempts = 1;
    ASSERT_EQ(varo_files_create(&options_, &files_, nullptr), VARO_OK);
  }
  void TearDown() override { varo_files_free(files_); }

  /// The code of a creation with these options, and what its failure says.
  std::pair<varo_code, std::string> creation(const varo_options* options) {
    varo_files* files = nullptr;
    varo_failure* failure = nullptr;
    const varo_code code = varo_files_create(options, &files, &failure);
    EXPECT_EQ(code == VARO_OK, files != nullptr);
    const std::string message = failure != nullptr ? failure->message : "";
    varo_failure_free(failure);
    varo_files_free(files);
    return {code, message};
  }

  /// Has the server take the second chunk of an upload for ever.
  void holdSecondChunk() {
    server_->addFault(
        {.match = {.path = "/bytes/", .skip = 1}, .action = {.stallAfter = 1, .stallFor = -1ms}});
  }

  std::string url_;
  varo_options options_ = {};
  varo_files* files_ = nullptr;
  const varo_upload_options named_ = {.size = sizeof(varo_upload_options),
                                      .name = "a",
                                      .metadata = nullptr,
                                      .metadata_count = 0,
                                      .file_namespace = nullptr,
                                      .security_key = nullptr,
                                      .chunk_size = 60'000,
                                      .resume = nullptr,
                                      .on_place = nullptr,
                                      .user = nullptr};
  const std::string twoChunks_ = std::string(100'000, 'x');
};

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

struct Told {
  std::atomic<int> times{0};
  std::atomic<varo_code> code{VARO_PENDING};
  std::promise<void> first;

  static void done(void* user, const varo_outcome* outcome) {
    auto* told = static_cast<Told*>(user);
    told->code = varo_outcome_code(outcome);
    if (told->times++ == 0) told->first.set_value();
  }
};

TEST_F(CInterfaceTest, ReleaseTellsTheEndAndDetachLetsItCome) {
  Told released;
  holdSecondChunk();
  varo_transfer* held =
      varo_files_upload_bytes(files_, twoChunks_.data(), twoChunks_.size(), &named_);
  ASSERT_EQ(varo_transfer_on_done(held, Told::done, &released), VARO_OK);
  EXPECT_EQ(varo_transfer_wait(held, 0), VARO_PENDING);
  EXPECT_EQ(varo_transfer_outcome(held), nullptr);
  varo_transfer_release(held);
  EXPECT_EQ(released.times, 1);
  EXPECT_EQ(released.code, VARO_CANCELLED);

  server_->clearFaults();
  Told detached;
  varo_transfer* list = varo_files_list(files_, nullptr, 0);
  ASSERT_EQ(varo_transfer_on_done(list, Told::done, &detached), VARO_OK);
  varo_transfer_detach(list);
  detached.first.get_future().get();
  EXPECT_EQ(detached.code, VARO_OK);
}

struct Inside {
  varo_transfer* transfer = nullptr;
  std::string id;
  std::promise<void> isReady;
  std::promise<void> ended;
  int pieces = 0;

  /// Two chunks, when the callback is set.
  static std::int64_t read(void* user, void* /*buffer*/, std::size_t /*length*/) {
    auto* inside = static_cast<Inside*>(user);
    if (inside->pieces == 0) inside->isReady.get_future().get();
    return inside->pieces++ < 2 ? 50'000 : 0;
  }
  static void cancels(void* user, const varo_progress* /*progress*/) {
    varo_transfer_cancel(static_cast<Inside*>(user)->transfer);
  }
  /// The outcome is there to the end of the call, although its transfer goes.
  static void releases(void* user, const varo_outcome* outcome) {
    auto* inside = static_cast<Inside*>(user);
    varo_transfer_release(inside->transfer);
    inside->id = varo_outcome_file(outcome, 0)->id;
    inside->ended.set_value();
  }
};

TEST_F(CInterfaceTest, CallbacksMayEndTheirOwnTransfer) {
  Inside cancelled;
  holdSecondChunk();
  cancelled.transfer = varo_files_upload_reader(files_, Inside::read, &cancelled, 100'000, &named_);
  varo_transfer_on_progress(cancelled.transfer, Inside::cancels, &cancelled);
  cancelled.isReady.set_value();
  EXPECT_EQ(endOf(cancelled.transfer).first, VARO_CANCELLED);

  server_->clearFaults();
  Inside released;
  const std::string id = storedFile("content");
  released.transfer = varo_files_list(files_, nullptr, 0);
  varo_transfer_on_done(released.transfer, Inside::releases, &released);
  released.ended.get_future().get();
  EXPECT_EQ(released.id, id);
}

TEST_F(CInterfaceTest, ReadersAndSinksMayRefuse) {
  const varo_read_fn stops = [](void*, void*, std::size_t) { return std::int64_t{-1}; };
  const varo_read_fn overflows = [](void*, void*, std::size_t length) {
    return static_cast<std::int64_t>(length) + 1;
  };
  const varo_write_fn refuses = [](void*, const void*, std::size_t) { return 5; };
  const std::string id = storedFile("content");
  const auto upload = [&](varo_read_fn read) {
    return endOf(varo_files_upload_reader(files_, read, nullptr, VARO_UNKNOWN_LENGTH, &named_));
  };
  EXPECT_EQ(upload(stops).first, VARO_LOCAL_FILE);
  EXPECT_EQ(upload(overflows).first, VARO_LOCAL_FILE);
  EXPECT_THAT(endOf(varo_files_download_sink(files_, id.c_str(), refuses, nullptr, nullptr)).second,
              HasSubstr("returned 5"));
  varo_download_options odd = {};
  odd.size = sizeof odd;
  odd.if_exists = static_cast<varo_if_exists>(9);
  EXPECT_EQ(endOf(varo_files_download_path(files_, id.c_str(), "a", &odd)).first,
            VARO_INVALID_ARGUMENT);
}

/// What the callbacks of one client and its upload were told.
struct Reports {
  platform::Mutex mutex;
  std::string log VARO_GUARDED_BY(mutex);
  std::string place VARO_GUARDED_BY(mutex);

  static void logged(void* user, const varo_log_record* record) {
    auto* told = static_cast<Reports*>(user);
    const platform::MutexLock lock(told->mutex);
    told->log += record->message;
  }
  static void reached(void* user, const char* /*record*/, const char* place) {
    auto* told = static_cast<Reports*>(user);
    const platform::MutexLock lock(told->mutex);
    told->place = place;
  }
};

TEST_F(CInterfaceTest, RequestsAreRepeatedAsTheOptionsSayAndTold) {
  struct Case {
    int attempts;
    std::int64_t budget;
    varo_code listed;
    std::string told;
    std::uint64_t memory = 0;
  };
  const Case cases[] = {
      {0, 0, VARO_OK, "1 503, 2 200, fileList 0"},
      {2, 0, VARO_OK, "1 503, 2 200, fileList 0"},
      {1, 0, VARO_SERVER, "1 503, fileList 10"},
      {2, -1, VARO_INVALID_ARGUMENT, ""},
      {-1, 0, VARO_INVALID_ARGUMENT, ""},
      {1, 0, VARO_INVALID_ARGUMENT, "fileList 2", 1024},
  };
  for (const Case& wanted : cases) {
    server_->clearFaults();
    server_->addFault({.match = {.count = 1}, .action = {.status = 503}});
    varo_options options = options_;
    options.retry_attempts = wanted.attempts;
    options.retry_first_wait_ms = 1;
    options.retry_budget_ms = wanted.budget;
    options.memory = wanted.memory;
    std::string told;
    options.user = &told;
    options.on_request = [](void* user, const varo_request_event* event) {
      EXPECT_EQ(event->error, event->http_status == 503 ? VARO_SERVER : VARO_OK);
      EXPECT_EQ(std::string(event->method), "GET");
      EXPECT_GE(event->total_us, event->first_byte_us);
      EXPECT_GT(event->begun_us, 0);
      *static_cast<std::string*>(user) +=
          std::to_string(event->attempt) + " " + std::to_string(event->http_status) + ", ";
    };
    options.on_operation = [](void* user, const varo_operation_event* event) {
      *static_cast<std::string*>(user) +=
          varo_operation_kind_name(event->kind) + (" " + std::to_string(event->outcome));
    };
    varo_files* files = nullptr;
    const varo_code created = varo_files_create(&options, &files, nullptr);
    EXPECT_EQ(created == VARO_OK ? endOf(varo_files_list(files, nullptr, 0)).first : created,
              wanted.listed)
        << wanted.attempts;
    EXPECT_EQ(told, wanted.told);
    varo_files_free(files);
  }
}

TEST_F(CInterfaceTest, UploadGoesOnAtItsPlaceAndMessagesGoToTheLogOfTheirClient) {
  Reports told;
  varo_options options = options_;
  options.user = &told;
  options.log = Reports::logged;
  options.log_level = VARO_LOG_TRACE;
  varo_files* files = nullptr;
  ASSERT_EQ(varo_files_create(&options, &files, nullptr), VARO_OK);
  server_->addFault({.match = {.path = "/bytes/", .skip = 1}, .action = {.status = 503}});
  varo_upload_options upload = named_;
  upload.on_place = Reports::reached;
  upload.user = &told;
  const Handle failed =
      owned(varo_files_upload_bytes(files, twoChunks_.data(), twoChunks_.size(), &upload));
  EXPECT_EQ(varo_transfer_wait(failed.get(), -1), VARO_SERVER);
  const std::string place = varo_outcome_failure(varo_transfer_outcome(failed.get()))->place;
  server_->clearFaults();
  server_->clearStats();
  upload.resume = place.c_str();
  upload.on_place = nullptr;
  EXPECT_EQ(
      endOf(varo_files_upload_bytes(files, twoChunks_.data(), twoChunks_.size(), &upload)).first,
      VARO_OK);
  // The second chunk and the commit.
  EXPECT_EQ(server_->serviceStats().requests, 2U);
  varo_files_free(files);
  // Told on a thread of its own, maybe after the outcome.
  EXPECT_TRUE(test::eventually([&] {
    const platform::MutexLock lock(told.mutex);
    return told.place == place;
  }));
  const platform::MutexLock lock(told.mutex);
  EXPECT_NE(told.log, "");
}

TEST_F(CInterfaceTest, UserDataIsFreedWithTheLastUseOfItsClient) {
  struct User {
    int asked = 0;
    std::atomic<int> freed{0};
    std::promise<void> gone;
  } user;
  options_.user = &user;
  options_.free_user = [](void* data) {
    ++static_cast<User*>(data)->freed;
    static_cast<User*>(data)->gone.set_value();
  };
  options_.credentials = [](void* data, varo_credentials* credentials) {
    if (static_cast<User*>(data)->asked++ == 0) return 0;
    varo_credentials_refuse(credentials, "the key is at home");
    return 1;
  };
  options_.parallel = -1;
  EXPECT_EQ(creation(&options_).first, VARO_INVALID_ARGUMENT);
  EXPECT_EQ(user.freed, 0) << "it is still the caller's";

  options_.parallel = 1;
  varo_files* files = nullptr;
  ASSERT_EQ(varo_files_create(&options_, &files, nullptr), VARO_OK);
  EXPECT_EQ(endOf(varo_files_list(files, nullptr, 0)).first, VARO_OK);
  const auto [code, message] = endOf(varo_files_list(files, nullptr, 0));
  EXPECT_EQ(code, VARO_UNAUTHORIZED);
  EXPECT_THAT(message, HasSubstr("the key is at home"));
  EXPECT_EQ(user.freed, 0);
  varo_files_free(files);
  user.gone.get_future().get();  // by the last operation, if that was still about to end
  EXPECT_EQ(user.freed, 1);

  options_.credentials = nullptr;
  user.gone = {};
  ASSERT_EQ(varo_files_create(&options_, &files, nullptr), VARO_OK);
  EXPECT_EQ(user.freed, 1) << "its client is there, although it does not use it";
  varo_files_free(files);
  EXPECT_EQ(user.freed, 2);
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
