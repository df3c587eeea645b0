#include "Client/Failures.h"
#include "Client/FirstPart.h"

#include <gtest/gtest.h>

#include <stop_token>
#include <string>

namespace varo::detail {
namespace {

/// Who got the answer, and when.
class FirstPartTest : public testing::Test {
 protected:
  FirstPart::Taker takes(const std::string& who) {
    return [this, who](const Outcome<platform::HttpResponse>& answer) {
      log_ += who + (answer ? " good " : " bad ");
    };
  }

  std::string log_;
  std::stop_source run_;
  FirstPart part_{takes("alone"), run_.get_token()};
};

TEST_F(FirstPartTest, GoesToWhoAskedUnlessItWasClaimedInTime) {
  part_.answered(platform::HttpResponse());
  EXPECT_EQ(log_, "alone good ");
  EXPECT_FALSE(part_.claim()) << "it was taken";
}

TEST_F(FirstPartTest, WaitsAfterAClaimForWhoeverTakesIt) {
  ASSERT_TRUE(part_.claim());
  EXPECT_FALSE(part_.claim());
  part_.answered(failureOf(Kind::kServer, "503"));
  EXPECT_EQ(log_, "");
  part_.takeAlone();
  EXPECT_EQ(log_, "alone bad ");
}

TEST_F(FirstPartTest, GoesToItsStepAndEndsWithThat) {
  ASSERT_TRUE(part_.claim());
  std::stop_source step;
  part_.takeIn(step.get_token(), takes("step"));
  EXPECT_FALSE(part_.token().stop_requested());
  step.request_stop();
  EXPECT_TRUE(part_.token().stop_requested());
  part_.answered(platform::HttpResponse());
  EXPECT_EQ(log_, "step good ");
}

TEST_F(FirstPartTest, StaysAloneOnceItIsSentAgain) {
  part_.stayAlone();
  EXPECT_FALSE(part_.claim());
  part_.answered(platform::HttpResponse());
  EXPECT_EQ(log_, "alone good ");
}

TEST_F(FirstPartTest, EndsWithItsRun) {
  run_.request_stop();
  EXPECT_TRUE(part_.token().stop_requested());
}

}  // namespace
}  // namespace varo::detail
