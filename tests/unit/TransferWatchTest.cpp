#include "Cli/TransferWatch.h"
#include "tests/support/FakeHttpTransport.h"

#include <gtest/gtest.h>

namespace varo::cli {
namespace {

using std::chrono::steady_clock;

TEST(TransferWatch, IsIdleOnlyWhileNothingIsUnderWay) {
  const auto fake = std::make_shared<test::FakeHttpTransport>();
  fake->hold();
  fake->answer(test::answerWith(200, "a"));
  fake->answer(test::answerWith(200, "b"));
  TransferWatch watch(fake);
  bool chained = false;
  watch.send({}, [&](auto, auto) {
    // What starts from a completion follows without a gap.
    EXPECT_EQ(watch.idleTime(), steady_clock::duration::zero());
    watch.send({}, [&](auto response, auto) { chained = response && response->status == 200; });
  });
  EXPECT_EQ(watch.idleTime(), steady_clock::duration::zero());
  ASSERT_TRUE(fake->release());
  EXPECT_EQ(watch.idleTime(), steady_clock::duration::zero());
  const auto before = steady_clock::now();
  ASSERT_TRUE(fake->release());
  EXPECT_TRUE(chained);
  const auto idle = watch.idleTime();
  EXPECT_GT(watch.idleTime(), steady_clock::duration::zero());
  EXPECT_LE(idle, steady_clock::now() - before);
}

}  // namespace
}  // namespace varo::cli
