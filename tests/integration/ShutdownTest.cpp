#include "Platform/Foundation/Runtime.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/FileAdapterFixture.h"
#include "tests/support/OwnProcess.h"

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace varo::binary {
namespace {

using Storage = BinaryFileStorageInterface;
using namespace platform;
using namespace test;

constexpr int kOperations = 60;

/// A back end that answers nothing, and operations that wait for it.
class Stalled {
 public:
  Stalled() {
    (void)server_.start();
    server_.addFault({{}, {.stallAfter = 0, .stallFor = std::chrono::milliseconds(-1)}});
  }
  Stalled(const Stalled&) = delete;
  Stalled& operator=(const Stalled&) = delete;
  ~Stalled() { server_.stop(); }

  void startOperations() {
    for (int i = 0; i < kOperations; ++i) startOne([this](const Value&) { ++failures; });
    // All of them have reached the server and wait for an answer.
    (void)eventually([this] { return server_.serviceStats().requests >= kOperations; });
  }
  void startOne(const BinaryBlock& onFailure) {
    Storage::getFilesWithUrl(server_.url(), {}, {}, {}, onFailure, {});
  }

  std::atomic<int> failures{0};

 private:
  const test::TemporaryDirectory directory_;
  sandbox::SandboxServer server_{[this] {
    sandbox::SandboxOptions options;
    options.dataDirectory = directory_.path();
    return options;
  }()};
};

TEST(ShutdownTest, EndsTransfersInFlightTellsEveryCallerAndRefusesWhatFollows) {
  inOwnProcess([] {
    Stalled stalled;
    stalled.startOperations();
    const auto shutDown = [&] {
      Runtime::shared().shutdown();
      require(stalled.failures == kOperations, "every caller was told before a shutdown returns");
    };
    std::thread other(shutDown);
    shutDown();
    other.join();
    stalled.startOne([&](const Value& failure) {
      require(failure.dictionaryValue()["code"] == Value("5001"), "the refusal says why");
      ++stalled.failures;
    });
    require(stalled.failures == kOperations + 1, "what follows is refused at once");
  });
}

TEST(ShutdownTest, ExitOfTheProcessWithTransfersInFlightIsClean) {
  inOwnProcess([] {
    static Stalled& stalled = *new Stalled();  // still there while the exit ends the transfers
    stalled.startOperations();
  });
}

class EndCounter final : public platform::TaskListener {
 public:
  void task(const std::shared_ptr<platform::VSTask>& /*task*/, platform::TaskState from,
            platform::TaskState to, const Dictionary& /*context*/) override {
    if (platform::isFinal(to)) ++ends;
    if (from == to) ++contextChanges;
  }
  std::atomic<int> ends{0};
  std::atomic<int> contextChanges{0};
};

/// Is ended by whoever holds it.
struct HeldTask final : platform::VSTask {
  void execute() override { isRunning = true; }
  std::atomic<bool> isRunning{false};
};

TEST(ShutdownTest, TasksThatEndOrStartAfterItTellTheirListeners) {
  inOwnProcess([] {
    const auto counter = std::make_shared<EndCounter>();
    const auto parent = std::make_shared<VSTask>();
    auto held = std::make_shared<HeldTask>();
    held->subscribeForTaskUpdates(counter);
    parent->addSubtask(held);
    parent->start();
    require(eventually([&] { return held->isRunning.load(); }), "the task runs");
    Runtime::shared().shutdown();
    for (int i = 1; i <= 3; ++i) {
      held->raiseContextChangeEvent();
      require(counter->contextChanges == i, "each change is told, also after one was refused");
    }
    held->setState(TaskState::Ended);
    require(counter->ends == 1, "the end is told");
    require(parent->state() == TaskState::Ended, "the parent hears of it");

    const auto late = std::make_shared<HeldTask>();
    late->subscribeForTaskUpdates(counter);
    late->start();
    require(counter->ends == 2 && late->state() == TaskState::Errored, "a start fails at once");
    require(!late->isRunning, "and nothing runs");
  });
}

using FileShutdownTest = FileAdapterFixture;

TEST_F(FileShutdownTest, EveryStartOfAFileOperationEndsOnceWhileAnotherThreadShutsDown) {
  inOwnProcess([this] {
    constexpr int kThreads = 4;
    platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(platform::LogLevel::kFatal);
    // A failed look-up is one end there.
    setTransferPolicy(TransferPolicy::kSafe);
    // Deletes are accepted and never done: they poll, and sleep between.
    transport_->setHandler([](const RecordedRequest& request) {
      if (!request.url.ends_with("/jobs")) return serviceAnswer(request);
      return answerWith(200, R"({"poll_status":"true"})");
    });
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
            Storage::getFilesWithUrl(kUrl, {}, {}, end, end, {});
            Storage::updateWithUrl(kUrl, ofFile, end, end, {});
            Storage::deleteWithUrl(kUrl, "7", {}, {}, end, end, {});
            Storage::uploadBinaryWithUrl(kUrl, {}, upload, end, end, {}, {});
            const std::string file = std::to_string(++files);
            Storage::downloadWithURL(
                kUrl,
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
    std::filesystem::remove_all(home_.path());  // the exit that follows destroys no fixture
  });
}

TEST(ShutdownTest, ExitOfAForkedChildDoesNotWaitForThreadsItDoesNotHave) {
  inOwnProcess([] {
    // Made before the runtime, so called after it has gone: what the threads held, which the child
    // does not have, is no leak to be looked for.
    static const pid_t parent = ::getpid();
    std::atexit([] {
      if (::getpid() != parent) ::_exit(0);
    });
    Stalled stalled;
    stalled.startOperations();
    const pid_t child = ::fork();
    if (child == 0) std::exit(1);
    int status = -1;
    const bool ended = eventually([&] { return ::waitpid(child, &status, WNOHANG) == child; },
                                  std::chrono::seconds(10));
    if (!ended) ::kill(child, SIGKILL);
    Runtime::shared().shutdown();
    require(ended && WIFEXITED(status) && WEXITSTATUS(status) == 0, "the child ends well");
  });
}

TEST(ShutdownTest, ShutdownFromInsideACallbackDoesNotWaitForItself) {
  inOwnProcess([] {
    Stalled stalled;
    stalled.startOperations();
    std::atomic<bool> returned{false};
    Storage::getFilesWithUrl(
        "not a url", {}, {}, [](const Value&) {},
        [&](const Value&) {
          Runtime::shared().shutdown();
          returned = true;
        },
        {});
    require(eventually([&] { return returned && stalled.failures == kOperations; }), "all end");
    Runtime::shared().shutdown();
  });
}

}  // namespace
}  // namespace varo::binary
