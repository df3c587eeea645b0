#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/FileClientFixture.h"
#include "tests/support/Files.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/ScriptedServer.h"
#include "varo/client.h"

#include <gmock/gmock.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace varo {
namespace {

using namespace std::chrono_literals;
using test::eventually;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;

/// Keeps all events, in the order in which they come.
class Events {
 public:
  /// Has a client tell them.
  Options observed(Options options) {
    options.onRequest = [state = state_](const RequestEvent& event) {
      {
        const std::scoped_lock lock(state->mutex);
        state->requests.push_back(event);
        state->order.push_back(event.operation);
      }
      throw std::runtime_error("goes no further");
    };
    options.onOperation = [state = state_](const OperationEvent& event) {
      {
        const std::scoped_lock lock(state->mutex);
        state->operations.push_back(event);
        state->order.push_back(0);
      }
      throw 7;
    };
    return options;
  }
  [[nodiscard]] std::vector<RequestEvent> requests() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->requests;
  }
  [[nodiscard]] std::vector<OperationEvent> operations() const {
    const std::scoped_lock lock(state_->mutex);
    return state_->operations;
  }
  /// "1 PUT 503", or with the kind of the error where there was no response.
  [[nodiscard]] std::vector<std::string> told() const {
    std::vector<std::string> lines;
    for (const RequestEvent& event : requests()) {
      const std::string end =
          event.status ? std::to_string(*event.status) : std::string(nameOf(*event.error));
      lines.push_back(std::to_string(event.attempt) + " " + event.method + " " + end);
    }
    return lines;
  }
  /// One operation, whose event came after all of its requests and has their sums.
  [[nodiscard]] OperationEvent only() const {
    const std::scoped_lock lock(state_->mutex);
    if (state_->operations.size() != 1) throw std::logic_error("not one operation");
    const OperationEvent& one = state_->operations.front();
    EXPECT_EQ(state_->order.back(), 0U) << "it is not the last";
    EXPECT_EQ(one.attempts, state_->requests.size());
    Bytes sent, received;
    for (const RequestEvent& event : state_->requests) {
      EXPECT_EQ(event.operation, one.id);
      EXPECT_EQ(event.kind, one.kind);
      EXPECT_LE(event.firstByte.value_or(0us), event.total);
      sent.count += event.sent.count;
      received.count += event.received.count;
    }
    EXPECT_EQ(one.sent, sent);
    EXPECT_EQ(one.received, received);
    return one;
  }

 private:
  struct State {
    std::mutex mutex;
    std::vector<RequestEvent> requests;
    std::vector<OperationEvent> operations;
    std::vector<std::uint64_t> order;  // 0 for an operation
  };
  /// The last operation of a client may end after a test.
  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

class ObserverTest : public test::FileClientFixture {
 protected:
  [[nodiscard]] Options options() const {
    return {.url = server_->url(),
            .credentials = [] { return Credentials{.token = "s3cret"}; },
            .chunkSize = 64_KiB,
            .retry = {.attempts = 3, .firstWait = 1ms, .longestWait = 1ms}};
  }
  Events events_;
};

TEST_F(ObserverTest, AnUploadTellsEachRequestRepeatedOnesTooAndThenTheWhole) {
  server_->addFault({.match = {.method = "PUT", .path = "/bytes/", .skip = 1, .count = 1},
                     .action = {.status = 503}});
  const FileClient files = FileClient::create(events_.observed(options())).value();
  ASSERT_TRUE(files.upload(Source::text(std::string(100'000, 'x')), {.name = "a"}).get());
  EXPECT_THAT(events_.told(),
              ElementsAre("1 POST 200", "1 PUT 200", "1 PUT 503", "2 PUT 200", "1 PUT 200"));
  const OperationEvent whole = events_.only();
  EXPECT_EQ(whole.kind, OperationKind::kFileUpload);
  EXPECT_EQ(whole.failure, std::nullopt);
  EXPECT_EQ(whole.done, Bytes(100'000));
  EXPECT_GT(whole.sent, Bytes(100'000)) << "the metadata, and a chunk twice";
  const auto requests = events_.requests();
  EXPECT_TRUE(requests.front().connect) << "the first one connects";
  EXPECT_EQ(requests[2].error, Kind::kServer);
  EXPECT_EQ(requests[1].sent, 64_KiB);
  for (const RequestEvent& event : requests) {
    EXPECT_TRUE(event.firstByte && event.queue);
    EXPECT_THAT(event.url, Not(HasSubstr("s3cret")));
    EXPECT_GE(event.begun, whole.begun);
  }
}

TEST_F(ObserverTest, WhatIsStoppedHasOneEventEachAndTheOperationOne) {
  test::ScriptedServer silent([](const test::WireRequest&) { return test::WireReply().hold(); });
  struct Case {
    std::string name;
    std::function<void(Transfer<std::vector<FileRecord>>&)> stop;
    std::size_t requests;
  };
  const auto asked = [&](std::size_t count) {
    return eventually([&] { return silent.requests().size() == count; });
  };
  const Case cases[] = {
      {"cancel", [](auto& list) { list.cancel(); }, 1},
      {"destruction", [](auto& list) { auto gone = std::move(list); }, 1},
      {"pause, resume, cancel",
       [&](auto& list) {
         const std::size_t before = silent.requests().size();
         list.pause();
         EXPECT_TRUE(eventually([&] { return list.state() == State::kPaused; }));
         list.resume();
         EXPECT_TRUE(asked(before + 1));
         list.cancel();
       },
       2},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.name);
    Events events;
    {
      const FileClient files =
          FileClient::create(events.observed({.url = silent.url("/a")})).value();
      const std::size_t before = silent.requests().size();
      auto list = files.list();
      ASSERT_TRUE(asked(before + 1));
      one.stop(list);
    }
    ASSERT_TRUE(eventually([&] { return !events.operations().empty(); }));
    EXPECT_EQ(events.told(), std::vector<std::string>(one.requests, "1 GET cancelled"));
    EXPECT_EQ(events.only().failure, Kind::kCancelled);
  }
}

TEST_F(ObserverTest, TheCleaningUpAfterACancelBelongsToTheOperation) {
  const FileClient files = FileClient::create(events_.observed(options())).value();
  server_->addFault({.match = {.method = "PUT", .path = "/bytes/"}, .action = {.latency = -1ms}});
  auto upload = files.upload(Source::text(std::string(100'000, 'x')), {.name = "a"});
  ASSERT_TRUE(eventually([&] { return upload.progress().done > 0; })) << "its chunk is sent";
  upload.cancel();
  EXPECT_EQ(upload.get().error().kind, Kind::kCancelled);
  ASSERT_TRUE(eventually([&] { return !events_.operations().empty(); }));
  EXPECT_EQ(events_.only().failure, Kind::kCancelled);
  EXPECT_THAT(events_.told(), ElementsAre("1 POST 200", "1 PUT cancelled", "1 DELETE 200"));
}

TEST(ObserverShutDownTest, TheShutdownIsTold) {
  test::inOwnProcess([] {
    test::ScriptedServer silent([](const test::WireRequest&) { return test::WireReply().hold(); });
    Events events;
    const FileClient files = FileClient::create(events.observed({.url = silent.url("/a")})).value();
    auto list = files.list();
    test::require(eventually([&] { return silent.requests().size() == 1; }), "it was sent");
    test::require(shutDown(std::chrono::milliseconds::max()), "the threads have ended");
    test::require(events.told() == std::vector<std::string>{"1 GET shutDown"}, "the request");
    test::require(events.only().failure == Kind::kShutDown, "the operation");
  });
}

#ifdef VARO_WATCHED_EXAMPLE
TEST_F(ObserverTest, TheExampleWritesMetricsAndSpans) {
  test::writeFile(path("file"), "bytes");
  test::ChildProcess example({.program = VARO_WATCHED_EXAMPLE,
                              .arguments = {server_->url(), path("file"), path("spans")},
                              .environment = {},
                              .directory = directory_,
                              .input = {}});
  EXPECT_EQ(example.wait(), 0) << example.errors();
  EXPECT_THAT(
      example.output(),
      testing::AllOf(HasSubstr("varo_operations_total{kind=\"fileUpload\",outcome=\"ok\"} 1\n"),
                     HasSubstr("varo_requests_total{kind=\"fileUpload\",method=\"PUT\",outcome="
                               "\"2xx\"} 2\n"),
                     HasSubstr("varo_request_seconds_bucket{le=\"+Inf\"} 5\n"),
                     HasSubstr("varo_request_seconds_count 5\n")));
  std::ifstream lines(path("spans"));
  std::set<std::string> ids, parents, names;
  for (std::string line; std::getline(lines, line);) {
    const auto span = boost::json::parse(line).as_object();
    EXPECT_EQ(span.at("traceId").as_string().size(), 32U);
    ids.emplace(span.at("spanId").as_string());
    parents.emplace(span.at("parentSpanId").as_string());
    names.emplace(span.at("name").as_string());
    EXPECT_LE(span.at("startTimeUnixNano").as_int64(), span.at("endTimeUnixNano").as_int64());
  }
  EXPECT_EQ(ids.size(), 7U) << "five requests, two operations";
  parents.erase("");
  EXPECT_THAT(ids, testing::IsSupersetOf(parents));
  EXPECT_THAT(names, ElementsAre("GET", "POST", "PUT", "fileDownload", "fileUpload"));
}
#endif

}  // namespace
}  // namespace varo
