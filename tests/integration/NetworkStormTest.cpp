// Thousands of small operations, over a bad line to a server that fails, moves and restarts.

#include "tests/support/Await.h"
#include "tests/support/NetworkFixture.h"
#include "tests/support/ResourceUse.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace varo {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using sandbox::FaultAction;
using test::Application;
using test::Column;
using test::contentOf;
using test::eventually;
using test::ResourceUse;

std::size_t numberIn(const char* variable, std::size_t otherwise) {
  const char* text = std::getenv(variable);
  return text != nullptr ? std::strtoul(text, nullptr, 10) : otherwise;
}

/// What is stored by the operation of a number follows from it, so that nobody has to keep it.
Column columnOf(std::size_t number) { return static_cast<Column>(number % 4); }
std::string bytesOf(std::size_t number) {
  std::string bytes = sandbox::sampleBytes(1 + number * 7919 % 6000);
  bytes.replace(0, 1, test::nameOf(number));
  return bytes;
}
constexpr std::uint64_t kBlobBytes = 3000;
int blobOf(std::size_t number) { return static_cast<int>(number / 4) + 1; }

/// What the application was told of a thing.
enum class Told { kNothing, kStored, kFailed };

/// What a fault of the storm does; each hits one request.
std::vector<FaultAction> faults() {
  return {{.status = 503},
          {.status = 429, .headers = {{"Retry-After", "0"}}},
          {.status = 500},
          {.status = 504, .headers = {{"Retry-After", "Sun, 06 Nov 1994 08:49:37 GMT"}}},
          {.drop = true},
          {.cutAfter = 0},
          {.cutAfter = 700},
          {.cutRequestAfter = 500},
          {.stallAfter = 10, .stallFor = 300ms},
          {.delay = 300ms},
          {.newToken = "next"}};
}

/// Things that a process that is killed may get to.
constexpr std::size_t kOfChild = 200;

class NetworkStormTest : public test::NetworkFixture {
 protected:
  [[nodiscard]] Application over(const std::string& directory, const std::string& proxy,
                                 const char* password) {
    return {directory, at_, [this, proxy, password](Column column) {
              return Options{
                  .credentials = tokensOf(column).provider(),
                  .proxy = Proxy{.url = proxy, .user = "ann", .password = password},
                  .perSecond = 4_MiB,
                  .chunkSize = 2_KiB,
                  .stallTimeout = stallTimeout_,
                  .retry = {.attempts = attempts_, .firstWait = 5ms, .longestWait = 100ms}};
            }};
  }
  [[nodiscard]] Application over(const char* password) {
    return over(directory_, line_->url("socks5h"), password);
  }

  /// Does the operations of these numbers, eight at once, over a line of their own; meanwhile
  /// processes that do the same are killed.
  ResourceUse storm(std::size_t first, std::size_t end, std::size_t children) {
    line_.emplace(test::ProxyRules{.user = "ann",
                                   .password = "right",
                                   .bytesPerSecond = 8 << 20U,
                                   .loss = 0.05,
                                   .retransmission = 1ms,
                                   .breaks = 0.05,
                                   .seed = seed_});
    {
      const platform::MutexLock lock(mutex_);
      moveServer();
    }
    {
      const Application application = over("right");
      const Application stranger = over("wrong");
      std::atomic<std::size_t> next = first;
      std::vector<std::jthread> workers;
      for (int i = 0; i < 8; ++i) {
        workers.emplace_back([&] {
          for (std::size_t number = next++; number < end; number = next++) {
            disturb(number);
            operate(number % 50 == 7 ? stranger : application, number);
          }
        });
      }
      for (; children > 0; --children) stormUntilKilled();
    }
    server_->clearFaults();
    line_.reset();
    return {};
  }
  static Outcome<void> store(const Application& application, std::size_t number,
                             const std::string& copy) {
    if (columnOf(number) == Column::kBlob) return get(application, number, copy);
    return application.put(columnOf(number), number, Source::text(bytesOf(number)));
  }
  /// What comes is right.
  static Outcome<void> get(const Application& application, std::size_t number,
                           const std::string& copy) {
    const bool isBlob = columnOf(number) == Column::kBlob;
    const int pk = blobOf(number);
    auto got =
        application.get(columnOf(number), isBlob ? static_cast<std::size_t>(pk) : number, copy);
    EXPECT_EQ(got.has_value(), fs::exists(copy)) << copy;
    if (!got) return got;
    const std::string expected = isBlob ? photo("blobs", pk, kBlobBytes) : bytesOf(number);
    EXPECT_EQ(test::digestOf(contentOf(copy)), test::digestOf(expected)) << test::nameOf(number);
    fs::remove(copy);
    return got;
  }
  /// Most store something, the others get what others have stored.
  void operate(const Application& application, std::size_t number) {
    std::minstd_rand random(seed_ + static_cast<std::uint32_t>(number));
    const std::string copy = path("copy " + std::to_string(number));
    const std::size_t other = random() % (number + 1);
    const bool isGet = random() % 3 == 0 && told_[other] == Told::kStored;
    const std::size_t thing = isGet ? other : number;
    const auto outcome = (isGet ? get : store)(application, thing, copy);
    ++(outcome ? good_ : bad_);
    if (!isGet) told_[number] = outcome ? Told::kStored : Told::kFailed;
    if (outcome) return;
    const bool isBlob = columnOf(thing) == Column::kBlob;
    const std::string name = isBlob ? "album" : test::nameOf(thing);
    // The identifier of a file is all that its download knows.
    if (isGet && columnOf(thing) == Column::kFile) return;
    EXPECT_THAT(outcome.error().message, testing::HasSubstr(name));
  }

  /// Before an operation, at random: a fault for one of the next requests. Now and then the server
  /// goes away, and comes back elsewhere.
  void disturb(std::size_t number) {
    const platform::MutexLock lock(mutex_);
    if (number % 50 == 0) server_->clearFaults();  // those that nothing has met
    if (number % (kOperations / 8) == kOperations / 16) moveServer();
    if (random_() % 3 != 0) return;
    const std::vector<FaultAction> all = faults();
    sandbox::FaultRule rule{{.skip = random_() % 4, .count = 1}, all[random_() % all.size()]};
    if (rule.action.newToken) {
      // The one before has to be in use: only then do clients take this one for the next.
      if (tokensOf(Column::kFile).current() != expiring_) return;
      rule.action.newToken = test::Tokens::text(++expiring_);
      rule.match.listener = "service";
    }
    server_->addFault(rule);
  }

  void moveServer() VARO_REQUIRES(mutex_) {
    restartServer();
    expiring_ = 1;
  }

  /// A process that stores things until it is killed.
  void stormUntilKilled() {
    const std::size_t first = (nextOfChild_ += kOfChild) - kOfChild;
    test::ChildProcess child(otherProcess(directory_ + "\n" + line_->url("socks5h") + "\n" +
                                          std::to_string(first) + "\n" + at_.text()));
    const auto stored = [&child] {
      std::vector<std::size_t> numbers;
      std::istringstream lines(child.output());
      for (std::string line; std::getline(lines, line) && !lines.eof();) {
        if (line.starts_with("stored ")) numbers.push_back(std::stoul(line.substr(7)));
      }
      return numbers;
    };
    EXPECT_TRUE(eventually([&] { return stored().size() > 1; }, 60s))
        << child.output() << child.errors();
    child.signal(SIGKILL);
    child.wait();
    for (const std::size_t number : stored()) told_[number] = Told::kStored;
  }
  void runAsChild() {
    std::istringstream lines(told());
    std::string directory, proxy, first;
    for (std::string* line : {&directory, &proxy, &first}) std::getline(lines, *line);
    at_ = test::Addresses::in(lines);
    const Application application = over(directory, proxy, "right");
    const std::size_t begin = std::stoul(first);
    for (std::size_t number = begin; number < begin + kOfChild; ++number) {
      if (!store(application, number, directory + "/child/copy")) continue;
      std::cout << "stored " << number << std::endl;
    }
  }

  void expectNothingLost() {
    line_.emplace(test::ProxyRules{.user = "ann", .password = "right"});
    restartServer();
    attempts_ = 5;
    stallTimeout_ = 60s;
    at_.blobs = "http://127.0.0.1:1/";  // what is not there does not come now
    const Application application = over("right");
    for (std::size_t number = 0; number < told_.size(); ++number) {
      SCOPED_TRACE(test::nameOf(number));
      const auto got = get(application, number, path("copy"));
      if (got) continue;
      EXPECT_NE(told_[number], Told::kStored) << got.error().message;
      const bool isBlob = columnOf(number) == Column::kBlob;
      EXPECT_EQ(nameOf(got.error().kind), nameOf(isBlob ? Kind::kNoConnection : Kind::kNotFound))
          << got.error().message;
    }
  }

  const std::size_t kOperations = std::max<std::size_t>(numberIn("VARO_STORM", 300), 100);
  const std::size_t kChildren = kOperations / 2000 + 1;
  const std::uint32_t seed_ =
      static_cast<std::uint32_t>(numberIn("VARO_STORM_SEED", std::random_device()()));
  std::vector<std::atomic<Told>> told_ =
      std::vector<std::atomic<Told>>(kOperations + kChildren * kOfChild);
  int attempts_ = 20;
  std::chrono::milliseconds stallTimeout_ = 200ms;
  std::size_t nextOfChild_ = kOperations;
  std::atomic<std::size_t> good_ = 0;
  std::atomic<std::size_t> bad_ = 0;

  platform::Mutex mutex_;
  std::minstd_rand random_ VARO_GUARDED_BY(mutex_){seed_};
  int expiring_ VARO_GUARDED_BY(mutex_) = 1;
};

TEST_F(NetworkStormTest, EveryOperationEndsOnceAndNothingIsLost) {
  if (told() != nullptr) return runAsChild();
  std::cout << "VARO_STORM=" << kOperations << " VARO_STORM_SEED=" << seed_ << std::endl;
  sandbox::SandboxOptions options;
  options.objectStore.clockOffset = 20min;
  begin(options);
  makeDatabase("blobs", blobOf(told_.size()), kBlobBytes);
  // Nine threads and another process write: whoever reads does not wait for them.
  sql("blobs", "PRAGMA journal_mode = WAL");
  const ResourceUse early = storm(0, kOperations / 10, 0);
  const ResourceUse late = storm(kOperations / 10, kOperations, kChildren);
  std::cout << good_ << " good, " << bad_ << " failed\n" << early << '\n' << late << std::endl;
  EXPECT_GT(good_, bad_);
  EXPECT_TRUE(eventually([&] { return ResourceUse().descriptors <= early.descriptors; }));
  EXPECT_TRUE(eventually([&] { return ResourceUse().threads <= early.threads; }));
  // However many there were: what SQLite keeps of its pages, and a token and a request each that
  // the sandbox remembers. An operation that stayed would be 1 KiB at least, 9 MiB in a full storm.
  EXPECT_LE(late.memory, early.memory + (std::size_t{4} << 20U));
  expectNothingLost();
}

}  // namespace
}  // namespace varo
