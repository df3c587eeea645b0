#include "tests/support/Await.h"
#include "tests/support/CInterfaceFixture.h"
#include "tests/support/CallLog.h"
#include "varo/varo.h"

#include <gmock/gmock.h>

#include <atomic>
#include <cstddef>
#include <cstring>
#include <future>
#include <string>

namespace varo {
namespace {

using test::endOf;
using test::Handle;
using test::owned;
using testing::HasSubstr;

class CCallbacksTest : public test::CInterfaceFixture {};

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

TEST_F(CCallbacksTest, ReleaseTellsTheEndAndDetachLetsItCome) {
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

TEST_F(CCallbacksTest, CallbacksMayEndTheirOwnTransfer) {
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

TEST_F(CCallbacksTest, ReadersAndSinksMayRefuse) {
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
  test::CallLog<std::string> messages, places;

  static void logged(void* user, const varo_log_record* record) {
    static_cast<Reports*>(user)->messages.add(record->message);
  }
  static void reached(void* user, const char* /*record*/, const char* place) {
    static_cast<Reports*>(user)->places.add(place);
  }
};

TEST_F(CCallbacksTest, RequestsAreRepeatedAsTheOptionsSayAndTold) {
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

TEST_F(CCallbacksTest, UploadGoesOnAtItsPlaceAndMessagesGoToTheLogOfTheirClient) {
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
    const auto places = told.places.calls();
    return !places.empty() && places.back() == place;
  }));
  EXPECT_THAT(told.messages.calls(), testing::Not(testing::IsEmpty()));
}

TEST_F(CCallbacksTest, UserDataIsFreedWithTheLastUseOfItsClient) {
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

}  // namespace
}  // namespace varo
