#include "Binary/BinaryFileAdapterWithMetadata/Manager/UploadAdmission.h"
#include "tests/support/Await.h"

#include <gtest/gtest.h>

#include <memory>
#include <stop_token>
#include <string>
#include <vector>

namespace varo::binary {
namespace {

using platform::MutexLock;
using test::eventually;

class UploadAdmissionTest : public testing::Test {
 protected:
  void enter(const std::string& name, const std::stop_token& cancelled = {}) {
    admission_.enter(
        [this, name](UploadAdmission::Place place) {
          const MutexLock lock(mutex_);
          begun_.push_back(name);
          places_.push_back(std::move(place));
        },
        cancelled);
  }
  std::vector<std::string> begun() {
    const MutexLock lock(mutex_);
    return begun_;
  }
  /// The one that began first of those that still run.
  void endFirst() {
    UploadAdmission::Place ended;
    const MutexLock lock(mutex_);
    ended = std::move(places_.front());
    places_.erase(places_.begin());
  }
  bool eventuallyBegun(const std::vector<std::string>& names) {
    return eventually([&] { return begun() == names; });
  }

  UploadAdmission admission_{2};
  platform::Mutex mutex_;
  std::vector<std::string> begun_ VARO_GUARDED_BY(mutex_);
  std::vector<UploadAdmission::Place> places_ VARO_GUARDED_BY(mutex_);
};

TEST_F(UploadAdmissionTest, BeginsInOrderAsPlacesGetFree) {
  for (const char* name : {"a", "b", "c", "d"}) enter(name);
  EXPECT_EQ(begun(), (std::vector<std::string>{"a", "b"}));
  endFirst();
  EXPECT_TRUE(eventuallyBegun({"a", "b", "c"}));
  endFirst();
  EXPECT_TRUE(eventuallyBegun({"a", "b", "c", "d"}));
  endFirst();
  endFirst();
  enter("e");
  EXPECT_EQ(begun().back(), "e");
}

TEST_F(UploadAdmissionTest, OneThatIsCancelledBeginsWithoutAPlace) {
  std::stop_source before;
  before.request_stop();
  std::stop_source later;
  for (const char* name : {"a", "b"}) enter(name);
  enter("late", later.get_token());
  enter("next");
  enter("early", before.get_token());
  ASSERT_TRUE(eventuallyBegun({"a", "b", "early"}));
  later.request_stop();
  ASSERT_TRUE(eventuallyBegun({"a", "b", "early", "late"}));
  // The two that had no place have none to give.
  {
    const MutexLock lock(mutex_);
    places_.erase(places_.begin() + 2, places_.end());
  }
  EXPECT_EQ(begun().size(), 4U);
  endFirst();
  EXPECT_TRUE(eventuallyBegun({"a", "b", "early", "late", "next"}));
}

TEST_F(UploadAdmissionTest, NobodyWaitsAfterTheShutdown) {
  for (const char* name : {"a", "b", "c"}) enter(name);
  admission_.shutDown();
  EXPECT_TRUE(eventuallyBegun({"a", "b", "c"}));
  enter("d");
  EXPECT_EQ(begun().back(), "d");
}

}  // namespace
}  // namespace varo::binary
