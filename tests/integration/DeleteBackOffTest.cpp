// Deletes in back-off over the runtime's own threads and clock; only the network is scripted.

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "tests/support/FileAdapterFixture.h"
#include "tests/support/OwnProcess.h"

#include <atomic>
#include <cstdio>
#include <future>

namespace varo::binary {
namespace {

using Storage = BinaryFileStorageInterface;
using namespace platform;
using namespace test;
using Clock = std::chrono::steady_clock;

constexpr const char* kService = "http://127.0.0.1/services/storage";

/// Draws the greatest number that is allowed, but none above `most`.
class GreatRandom final : public Random {
 public:
  std::int64_t integer(std::int64_t /*least*/, std::int64_t greatest) override {
    return most < 0 ? greatest : most;
  }
  std::int64_t most = -1;
};

/// The runtime's, and how many have begun to sleep.
class CountingSleeper final : public Sleeper {
 public:
  void wakeAfter(std::chrono::milliseconds delay, platform::TimerQueue::Job wake) override {
    Sleeper::shared().wakeAfter(delay, std::move(wake));
    ++asleep;
  }
  std::atomic<int> asleep{0};
};

test::ScriptedAnswer answerOfBusyService(const RecordedRequest& request) {
  if (request.method == HttpMethod::kDelete) {
    return answerWith(202, R"({"opstatus":0,"httpStatusCode":202,"poll_api":"/jobs/7?a=1"})");
  }
  return answerWith(200, R"({"opstatus":0,"poll_status":"true","records":[]})");
}

void startDelete(Random& random, Sleeper& sleeper, const BinaryBlock& onSuccess,
                 const BinaryBlock& onFailure) {
  const auto task = std::make_shared<BinaryDeleteTask>(random, sleeper);
  task->setInputContext({{"url", kService},
                         {"callback", BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(
                                          onSuccess, onFailure, [](const Value&) {})},
                         {"requestContext", Dictionary{{"file_id", "7"}}}});
  task->start();
}

class DeleteClockTest : public test::FileAdapterFixture {};

TEST_F(DeleteClockTest, SecondStatusRequestFollowsTheFirstAfterTheDrawnSecond) {
  transport_->answer(answerWith(200, R"({"httpStatusCode":"202","poll_api":"/jobs/7"})"));
  transport_->answer(answerWith(200, R"({"poll_status":"true"})"));
  transport_->answer(answerWith(200, R"({"poll_status":"false"})"));
  GreatRandom random;
  const auto begin = Clock::now();
  startDelete(random, Sleeper::shared(), onSuccess(), onFailure());
  EXPECT_EQ(awaitNext().block, "success");
  EXPECT_GE(Clock::now() - begin, std::chrono::seconds(1));
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(10));
  EXPECT_EQ(transport_->requestCount(), 3U);
}

/// The runtime and its shutdown, for a number of deletes that a busy service has accepted.
class BusyDeletes {
 public:
  explicit BusyDeletes(int count) : count_(count) {
    Storage::initialize();  // the manager is a task and stays
    tasksAtRest_ = platform::VSTask::liveCount();
    platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(platform::LogLevel::kError);
    platform::VRONetworkUtility::setTransport(transport_);
    transport_->setHandler(answerOfBusyService);
  }

  void start(Random& random, Sleeper& sleeper) {
    for (int i = 0; i < count_; ++i) {
      startDelete(
          random, sleeper, [this](const Value&) { ++successes_; },
          [this](const Value&) { ++failures_; });
    }
  }
  void shutDownAndCheck() {
    Runtime::shared().shutdown();
    require(successes_ == 0, "no delete has succeeded");
    require(failures_ == count_, "every delete has failed, once");
    require(platform::VSTask::liveCount() == tasksAtRest_, "every task is freed");
  }

 private:
  const int count_;
  std::size_t tasksAtRest_ = 0;
  const std::shared_ptr<FakeHttpTransport> transport_ = std::make_shared<FakeHttpTransport>();
  std::atomic<int> successes_{0};
  std::atomic<int> failures_{0};
};

TEST(DeleteBackOffDeathTest, ThousandDeletesInBackOffHoldUpNothingAndFailWithTheShutdown) {
  inOwnProcess([] {
    constexpr int kDeletes = 1000;
    GreatRandom random;
    random.most = 3600;
    CountingSleeper sleeper;
    BusyDeletes deletes(kDeletes);
    deletes.start(random, sleeper);
    require(eventually([&] { return sleeper.asleep == kDeletes; }), "all deletes sleep");

    std::promise<void> listed;
    Storage::getFilesWithUrl(kService, {}, {}, [&](const Value&) { listed.set_value(); }, {}, {});
    require(listed.get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready,
            "a list completes meanwhile");
    Runtime& runtime = Runtime::shared();
    require(runtime.pool().threadCount() < 50, "threads are few");

    const auto begin = Clock::now();
    deletes.shutDownAndCheck();
    require(Clock::now() - begin < std::chrono::seconds(10), "the shutdown waits for no sleeper");
  });
}

TEST(DeleteBackOffDeathTest, EveryStartEndsOnceWhileAnotherThreadShutsDown) {
  inOwnProcess([] {
    constexpr int kThreads = 4;
    Storage::initialize();
    const auto transport = std::make_shared<FakeHttpTransport>();
    platform::VRONetworkUtility::setTransport(transport);
    platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(platform::LogLevel::kFatal);
    // A failed look-up is one end there.
    setTransferPolicy(TransferPolicy::kSafe);
    const std::string where = R"({\"domain\":\"#middlewaredomain\",\"relativepath\":\"/b\",)"
                              R"(\"uploadMode\":\"binary\",\"method\":\"put\"})";
    const std::string answer = R"({"opstatus":0,"upload_template":")" + where +
                               R"(","records":[{"file_name":"a","download_template":")" + where +
                               R"("}]})";
    transport->setHandler([answer](const auto&) { return answerWith(200, answer); });
    const TemporaryDirectory home;
    platform::UserDirectories::install(platform::UserDirectories::below(home.path()));
    const Dictionary upload{{"headers", Dictionary{}},
                            {"metadata", Dictionary{{"file_name", "a"}}},
                            {"file", Dictionary{{"rawBytes", Data::fromBytes("bytes")}}},
                            {"chunkSize", 2}};
    std::atomic<int> files{0};
    std::atomic<int> started{0};
    std::atomic<int> ended{0};
    std::atomic<bool> enough{false};
    const auto end = [&](const Value&) { ++ended; };
    const Dictionary ofFile{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
    {
      std::vector<std::jthread> threads;
      for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
          while (!enough) {
            Storage::getFilesWithUrl(kService, {}, {}, end, end, {});
            Storage::updateWithUrl(kService, ofFile, end, end, {});
            Storage::deleteWithUrl(kService, "7", {}, {}, end, end, {});
            Storage::uploadBinaryWithUrl(kService, {}, upload, end, end, {}, {});
            const std::string file = std::to_string(++files);
            Storage::downloadWithURL(
                kService,
                Dictionary{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", file}}}},
                end, end, {}, {});
            started += 5;
          }
        });
      }
      require(eventually([&] { return started > 100; }), "operations start");
      Runtime::shared().shutdown();
      const int before = started;
      require(eventually([&] { return started > before + 100; }), "and go on starting");
      enough = true;
    }
    require(eventually([&] { return ended >= started; }), "each of them ends");
    require(ended == started, "none ends twice");
  });
}

TEST(DeleteBackOffDeathTest, EveryDeleteReportsOnceWhereverTheShutdownFindsIt) {
  inOwnProcess([] {
    GreatRandom random;
    random.most = 0;  // polls again at once, so that deletes are at every step
    BusyDeletes deletes(300);
    deletes.start(random, Sleeper::shared());
    deletes.shutDownAndCheck();
  });
}

}  // namespace
}  // namespace varo::binary
