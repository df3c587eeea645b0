// Question: do deletes that wait for their next status request hold anything up? Prints, as one
// JSON object: the median and the 99th percentile of the time from the start of a list operation to
// its success block, while COUNT deletes sleep; the threads of the process and the memory that a
// sleeping delete takes; and how long the shutdown takes that ends them all.
//
//   varo_delete_bench COUNT
//
// The network is a transport that answers at once, so that nothing hides a delay: the lists cost
// microseconds, not a round trip.

#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryDeleteTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Platform/Foundation/Random.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Sleeper.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "tests/support/FakeHttpTransport.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <semaphore>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

using varo::binary::BinaryCallbackUtils;
using varo::binary::BinaryDeleteTask;
using varo::binary::BinaryFileStorageInterface;
using varo::platform::Dictionary;
using varo::platform::HttpMethod;
using varo::platform::LogLevel;
using varo::platform::Random;
using varo::platform::Runtime;
using varo::platform::Sleeper;
using varo::platform::TimerQueue;
using varo::platform::Value;
using varo::platform::VaroNativeFacade;
using varo::platform::VRONetworkUtility;
using varo::test::answerWith;
using varo::test::FakeHttpTransport;
using varo::test::RecordedRequest;
using varo::test::ScriptedAnswer;
using Clock = std::chrono::steady_clock;

constexpr const char* kService = "http://localhost/services/files";
constexpr std::size_t kWarmUp = 2000;
constexpr std::size_t kLists = 20'000;
constexpr std::int64_t kSleepSeconds = 3600;

/// Accepts every delete for later, is never done with one, and lists no files.
ScriptedAnswer answerOfABusyService(const RecordedRequest& request) {
  return answerWith(200, request.method == HttpMethod::kDelete
                             ? R"({"opstatus":0,"httpStatusCode":202,"poll_api":"/jobs/7?step=1"})"
                             : R"({"opstatus":0,"poll_status":"true","records":[]})");
}

class LongWaits final : public Random {
 public:
  std::int64_t integer(std::int64_t, std::int64_t) override { return kSleepSeconds; }
};

/// The runtime's, and how many have begun to sleep.
class CountingSleeper final : public Sleeper {
 public:
  void wakeAfter(std::chrono::milliseconds delay, TimerQueue::Job wake) override {
    Sleeper::shared().wakeAfter(delay, std::move(wake));
    ++asleep;
  }
  std::atomic<std::size_t> asleep{0};
};

/// The number after `name` in the process's status.
std::size_t statusEntry(std::string_view name) {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (!line.starts_with(name)) continue;
    const std::size_t first = line.find_first_of("0123456789");
    std::size_t number = 0;
    if (first != std::string::npos) {
      std::from_chars(line.data() + first, line.data() + line.size(), number);
    }
    return number;
  }
  return 0;
}

/// Ends of the deletes. None succeeds: the shutdown fails them.
struct Ends {
  std::atomic<std::size_t> successes{0};
  std::atomic<std::size_t> failures{0};
};

void putToSleep(std::size_t count, Ends& ends) {
  static LongWaits random;
  static CountingSleeper sleeper;
  for (std::size_t i = 0; i < count; ++i) {
    const auto task = std::make_shared<BinaryDeleteTask>(random, sleeper);
    task->setInputContext(
        {{"url", kService},
         {"callback", BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(
                          [&ends](const Value&) { ++ends.successes; },
                          [&ends](const Value&) { ++ends.failures; }, [](const Value&) {})},
         {"requestContext", Dictionary{{"file_id", std::to_string(i)}}}});
    task->start();
  }
  while (sleeper.asleep < count) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

/// Microseconds from each call to its success block, one list after another, in ascending order.
/// Empty when a list failed.
std::vector<double> timeLists(std::size_t count) {
  std::vector<double> times;
  times.reserve(count);
  std::binary_semaphore ended{0};
  bool failed = false;
  for (std::size_t i = 0; i < count && !failed; ++i) {
    const auto begin = Clock::now();
    Clock::time_point end;
    BinaryFileStorageInterface::getFilesWithUrl(
        kService, std::string("name eq 'x'"), Dictionary{},
        [&](const Value&) {
          end = Clock::now();
          ended.release();
        },
        [&](const Value&) {
          failed = true;
          ended.release();
        },
        Dictionary{});
    ended.acquire();
    times.push_back(std::chrono::duration<double, std::micro>(end - begin).count());
  }
  if (failed) times.clear();
  std::sort(times.begin(), times.end());
  return times;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view text = argc == 2 ? argv[1] : "";
  std::size_t count = 0;
  const auto parsed = std::from_chars(text.begin(), text.end(), count);
  if (text.empty() || parsed.ec != std::errc{} || parsed.ptr != text.end()) {
    fmt::print(stderr, "usage: varo_delete_bench COUNT\n");
    return 2;
  }
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  const auto transport = std::make_shared<FakeHttpTransport>();
  transport->forget();
  transport->setHandler(answerOfABusyService);
  VRONetworkUtility::setTransport(transport);
  (void)timeLists(kWarmUp);

  Ends ends;
  const std::size_t before = statusEntry("VmRSS:");
  putToSleep(count, ends);
  const std::size_t memory = std::max(statusEntry("VmRSS:"), before) - before;
  const std::vector<double> times = timeLists(kLists);
  const std::size_t threads = statusEntry("Threads:");

  const auto begin = Clock::now();
  Runtime::shared().shutdown();
  const std::chrono::duration<double, std::milli> shutdown = Clock::now() - begin;
  if (times.empty() || ends.successes != 0 || ends.failures != count) {
    fmt::print(stderr, "varo_delete_bench: {} deletes failed and {} succeeded, of {}\n",
               ends.failures.load(), ends.successes.load(), count);
    return 1;
  }
  fmt::print(R"({{"list_us":{},"list_p99_us":{},"threads":{},"sleeping_kib":{},"shutdown_ms":{}}})"
             "\n",
             times[times.size() / 2], times[times.size() * 99 / 100], threads, memory,
             shutdown.count());
  return 0;
}
