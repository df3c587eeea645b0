#include "Client/ClientCore.h"
#include "Client/Operation.h"
#include "Client/Running.h"
#include "Platform/Foundation/Runtime.h"
#include "tests/support/Await.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace varo::detail {
namespace {

using Done = Running<std::uint64_t>;

/// Counts what the operations that run need, by itself.
struct Count {
  std::atomic<std::uint64_t> now{0}, most{0};

  void add(std::uint64_t bytes) {
    const std::uint64_t sum = now += bytes;
    for (std::uint64_t seen = most; seen < sum && !most.compare_exchange_weak(seen, sum);) {
    }
  }
};

/// Needs memory, and runs until it is let go of.
class Needing final : public Operation {
 public:
  Needing(const ClientCore& core, std::uint64_t memory, Count& count, bool endsAtOnce)
      : Operation(core, OperationKind::kFileList, memory), count_(count), endsAtOnce_(endsAtOnce) {}

  static std::shared_ptr<Needing> begin(const ClientCore& core, std::uint64_t memory, Count& count,
                                        bool endsAtOnce = false) {
    const auto made = std::make_shared<Needing>(core, memory, count, endsAtOnce);
    made->beginFor(*made->handle, "test");
    return made;
  }
  void end() {
    count_.now -= memory();
    succeeded(run_, platform::Value());
  }
  [[nodiscard]] State state() const { return handle->state(); }

  const std::shared_ptr<Done> handle = std::make_shared<Done>();

 private:
  void launch(std::uint64_t run, const std::shared_ptr<platform::Cancellation>& cancel) override {
    run_ = run;
    count_.add(memory());
    if (!endsAtOnce_) return;
    platform::Runtime::shared().pool().postOrRun(
        [self = std::static_pointer_cast<Needing>(shared_from_this()), run,
         stop = cancel->token()] {
          self->count_.now -= self->memory();
          if (!stop.stop_requested()) return self->succeeded(run, platform::Value());
          Failure stopped;
          stopped.kind = Kind::kCancelled;
          self->failed(run, stopped);
        });
  }
  [[nodiscard]] bool canPause() const override { return true; }
  void finish(const platform::Value& /*result*/) override { handle->end(1U); }
  void finish(Failure failure) override { handle->end(std::move(failure)); }
  [[nodiscard]] RunningBase& running() override { return *handle; }

  Count& count_;
  const bool endsAtOnce_;
  std::atomic<std::uint64_t> run_{0};
};

std::shared_ptr<ClientCore> coreWith(Bytes memory, int parallel) {
  return ClientCore::create({.url = "http://h", .parallel = parallel, .memory = memory}).value();
}

TEST(Places, ManyThatWaitForMemoryAllEndAndNeverTakeMoreThanThereIs) {
  constexpr std::uint64_t kLimit = 1000;
  const auto core = coreWith(Bytes(kLimit), 64);
  Count count;
  std::vector<std::shared_ptr<Needing>> all;
  for (std::uint64_t i = 0; i < 2000; ++i) {
    all.push_back(Needing::begin(*core, i % 10 == 0 ? kLimit : 1 + i * 37 % 300, count, true));
    if (i % 3 == 0) all.back()->pause();
    if (i % 7 == 0) all[i / 2]->cancel();
  }
  for (const auto& one : all) one->resume();
  for (const auto& one : all) {
    ASSERT_TRUE(one->handle->waitFor(std::chrono::seconds(60)));
    const auto& outcome = one->handle->outcome();
    EXPECT_TRUE(outcome || outcome.error().kind == Kind::kCancelled);
  }
  EXPECT_LE(count.most, kLimit);
  EXPECT_LE(core->places()->memory().most(), kLimit);
  EXPECT_GE(core->places()->memory().most(), count.most);
  EXPECT_TRUE(test::eventually([&] { return core->places()->memory().taken() == 0; }));
}

TEST(Places, WhatNeedsMuchIsNotOvertakenAndHoldsNobodyUpOnceItIsGivenUp) {
  const auto core = coreWith(Bytes(100), 8);
  Count count;
  const auto running = Needing::begin(*core, 60, count);
  ASSERT_TRUE(test::eventually([&] { return running->state() == State::kRunning; }));
  const auto runs = [](const auto& one) {
    return test::eventually([&] { return one->state() == State::kRunning; });
  };
  using Step = void (Operation::*)();
  for (const Step leave : {&Operation::pause, &Operation::cancel}) {
    const auto large = Needing::begin(*core, 80, count);
    const auto small = Needing::begin(*core, 20, count);
    EXPECT_EQ(core->places()->memory().taken(), 60U) << "the small one has to wait as well";
    ((*large).*leave)();
    EXPECT_TRUE(runs(small));
    EXPECT_EQ(core->places()->memory().taken(), 80U);
    large->resume();
    EXPECT_NE(large->state(), State::kRunning);
    large->cancel();
    large->handle->wait();
    small->end();
    small->handle->wait();
    EXPECT_EQ(large->handle->outcome().error().kind, Kind::kCancelled);
  }
  const auto whole = Needing::begin(*core, 100, count);
  EXPECT_EQ(whole->state(), State::kWaiting);
  running->end();
  EXPECT_TRUE(runs(whole));
  whole->end();
  const auto tooLarge = Needing::begin(*core, 101, count);
  tooLarge->handle->wait();
  const Failure& failure = tooLarge->handle->outcome().error();
  EXPECT_EQ(failure.kind, Kind::kInvalidArgument);
  EXPECT_THAT(failure.message, testing::AllOf(testing::HasSubstr("101 bytes"),
                                              testing::HasSubstr("the 100 of Options::memory")));
}

}  // namespace
}  // namespace varo::detail
