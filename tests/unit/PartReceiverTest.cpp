#include "Client/PartReceiver.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

namespace varo::detail {
namespace {

using platform::Data;
using platform::File;

class PartReceiverTest : public testing::Test {
 protected:
  void SetUp() override {
    parts_ = PartsFile::nameless(directory_.path()).value();
    file_ = parts_->file();
    ASSERT_TRUE(file_->writeAt(0, "............"));
  }
  /// Of the four bytes from the fourth on.
  [[nodiscard]] std::shared_ptr<PartReceiver> receiver() const {
    return std::make_shared<PartReceiver>(
        parts_, 4, 4, [](const platform::HttpResponse& head) { return head.status == 206; });
  }
  [[nodiscard]] std::string content() const {
    return Data::fromFileRegion(file_, 0, file_->size().value()).readAll(100).value();
  }

  const test::TemporaryDirectory directory_;
  std::shared_ptr<PartsFile> parts_;
  std::shared_ptr<File> file_;
};

TEST_F(PartReceiverTest, LastAttemptHasItsPlaceAndNoByteOfAnother) {
  const auto receiver = this->receiver();
  for (const std::string bytes : {"ab", "ABCDEF"}) {
    ASSERT_TRUE(receiver->begin(206, {}, bytes.size()));
    for (const char byte : bytes) ASSERT_TRUE(receiver->write(std::string(1, byte)));
  }
  EXPECT_EQ(receiver->finish().value(), 6U) << "it was too long";
  ASSERT_TRUE(receiver->begin(206, {}, 4)) << "of a transport that goes on";
  ASSERT_TRUE(receiver->write("late"));
  EXPECT_EQ(content(), "....ABCD....");
}

TEST_F(PartReceiverTest, BytesOfAnotherResponseDoNotCount) {
  const auto receiver = this->receiver();
  ASSERT_TRUE(receiver->begin(200, {}, 4));
  ASSERT_TRUE(receiver->write("page"));
  EXPECT_EQ(receiver->finish().value(), 0U);
  EXPECT_EQ(content(), "............");
}

TEST_F(PartReceiverTest, NothingIsWrittenOnceTheGetHasLetTheFileGo) {
  for (const bool isFinished : {false, true}) {
    SetUp();
    const auto receiver = this->receiver();
    ASSERT_TRUE(receiver->begin(206, {}, 4));
    ASSERT_TRUE(receiver->write("AB"));  // gathered
    parts_.reset();
    if (!isFinished) {
      ASSERT_TRUE(receiver->write("CD"));
    }
    EXPECT_TRUE(receiver->finish());
    EXPECT_EQ(content(), "............");
  }
}

}  // namespace
}  // namespace varo::detail
