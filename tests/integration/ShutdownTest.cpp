#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/TaskEngine/VSAbstractLoopingTask.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/Await.h"
#include "tests/support/TemporaryDirectory.h"

#include <atomic>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

// The shared runtime can be shut down once a process, so each case runs in a process of its own,
// which answers with its exit code.

namespace varo::binary {
namespace {

using namespace platform;
using test::eventually;

constexpr int kOperations = 60;
constexpr int kExitAllWell = 0;
constexpr int kExitWrong = 3;

/// A back end that answers nothing, and operations that wait for it.
class Stalled {
 public:
  Stalled() {
    (void)server_.start();
    sandbox::FaultAction stall;
    stall.stallAfter = 0;
    stall.stallFor = std::chrono::milliseconds(-1);
    server_.addFault({{}, stall});
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
    const Dictionary params{{"headers", Dictionary{}},
                            {"metadata", Dictionary{{"file_name", "a"}}},
                            {"file", Dictionary{{"rawBytes", platform::Data::fromBytes("abc")}}}};
    BinaryFileStorageInterface::uploadBinaryWithUrl(
        server_.url(), "UploadInputTypeRawBytes", params, [](const Value&) {}, onFailure,
        [](const Value&) {}, {});
  }

  std::atomic<int> failures{0};

 private:
  static sandbox::SandboxOptions options(const std::string& directory) {
    sandbox::SandboxOptions options;
    options.dataDirectory = directory;
    return options;
  }
  const test::TemporaryDirectory directory_;
  sandbox::SandboxServer server_{options(directory_.path())};
};

/// Runs `body` in a process of its own and expects it to exit well, within a few seconds.
void expectGoodExit(const std::function<bool()>& body) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EXIT(std::exit(body() ? kExitAllWell : kExitWrong), testing::ExitedWithCode(kExitAllWell),
              "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

TEST(ShutdownTest, EndsTransfersInFlightTellsEveryCallerAndRefusesWhatFollows) {
  expectGoodExit([] {
    Stalled stalled;
    stalled.startOperations();
    Runtime::shared().shutdown();
    const bool allTold = stalled.failures == kOperations;
    stalled.startOne([&](const Value&) { ++stalled.failures; });
    return allTold && stalled.failures == kOperations + 1;
  });
}

TEST(ShutdownTest, ExitOfTheProcessWithTransfersInFlightIsClean) {
  expectGoodExit([] {
    static Stalled& stalled = *new Stalled();  // still there while the exit ends the transfers
    stalled.startOperations();
    return true;
  });
}

/// Ends at once, again and again, as long as it is allowed to.
class EndlessLoop final : public platform::VSAbstractLoopingTask {
 public:
  EndlessLoop() : VSAbstractLoopingTask(std::make_shared<Iteration>(), nullptr) {}
  void transformInputContextForNextIteration() override { ++iterations; }
  std::atomic<int> iterations{0};

 private:
  struct Iteration final : VSTask {
    void execute() override { setState(platform::TaskState::Ended); }
  };
};

class EndCounter final : public platform::TaskListener {
 public:
  void task(const std::shared_ptr<platform::VSTask>& /*task*/, platform::TaskState /*from*/,
            platform::TaskState to, const Dictionary& /*context*/) override {
    if (platform::isFinal(to)) ++ends;
  }
  std::atomic<int> ends{0};
};

TEST(ShutdownTest, LoopsThatIterateEndAndTellTheirListeners) {
  expectGoodExit([] {
    const auto counter = std::make_shared<EndCounter>();
    constexpr int kLoops = 20;
    for (int i = 0; i < kLoops; ++i) {
      const auto loop = std::make_shared<EndlessLoop>();
      loop->subscribeForTaskUpdates(counter);
      loop->start();
      if (!eventually([&] { return loop->iterations > 0; })) return false;
    }
    Runtime::shared().shutdown();
    return counter->ends == kLoops && platform::VSTask::liveCount() == 0;
  });
}

TEST(ShutdownTest, ConcurrentShutdownsBothReturnWhenAllIsDone) {
  expectGoodExit([] {
    Stalled stalled;
    stalled.startOperations();
    bool allTold = true;
    std::thread other([&] {
      Runtime::shared().shutdown();
      if (stalled.failures != kOperations) allTold = false;
    });
    Runtime::shared().shutdown();
    const bool toldHere = stalled.failures == kOperations;
    other.join();
    return allTold && toldHere;
  });
}

TEST(ShutdownTest, ExitOfAForkedChildDoesNotWaitForThreadsItDoesNotHave) {
  expectGoodExit([] {
    // Made before the runtime, so called after it has gone: what the threads held, which the child
    // does not have, is no leak to be looked for.
    static const pid_t parent = ::getpid();
    std::atexit([] {
      if (::getpid() != parent) ::_exit(kExitAllWell);
    });
    Stalled stalled;
    stalled.startOperations();
    const pid_t child = ::fork();
    if (child == 0) std::exit(kExitWrong);
    int status = -1;
    const bool ended = eventually([&] { return ::waitpid(child, &status, WNOHANG) == child; },
                                  std::chrono::seconds(10));
    if (!ended) ::kill(child, SIGKILL);
    Runtime::shared().shutdown();
    return ended && WIFEXITED(status) && WEXITSTATUS(status) == kExitAllWell;
  });
}

TEST(ShutdownTest, ShutdownFromInsideACallbackDoesNotWaitForItself) {
  expectGoodExit([] {
    Stalled stalled;
    stalled.startOperations();
    std::atomic<bool> returned{false};
    BinaryFileStorageInterface::getFilesWithUrl(
        "not a url", {}, {}, [](const Value&) {},
        [&](const Value&) {
          Runtime::shared().shutdown();
          returned = true;
        },
        {});
    const bool ended = eventually([&] { return returned && stalled.failures == kOperations; });
    Runtime::shared().shutdown();
    return ended;
  });
}

}  // namespace
}  // namespace varo::binary
