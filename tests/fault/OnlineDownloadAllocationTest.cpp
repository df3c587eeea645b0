// The online download of an object with each of its allocations failing: it ends once, and its
// name is free again.

#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/FailingAllocations.h"

#include <atomic>
#include <new>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

using OnlineDownloadAllocationTest = test::DownloadFixture;

TEST_F(OnlineDownloadAllocationTest, DownloadComesToOneEndAndTheNextOneToItsFile) {
  setTransferPolicy(TransferPolicy::kSafe);
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kFatal);
  const Dictionary parameters{{"fileId", "7"}};
  const Dictionary configuration{{"endpointUrl", "http://store/${fileId}"}};
  const auto manager = std::make_shared<OnlineBinaryDataManager>();
  const auto completed = std::make_shared<std::atomic<int>>(0);
  const auto failures = std::make_shared<std::atomic<int>>(0);
  const auto ends = [=] { return *completed + *failures; };
  const auto start = [&] {
    try {
      manager->createAndStartOnlineDownloadTaskFor(
          parameters, false, configuration, {}, {}, {},
          [completed](const auto&, const auto&, const auto&) { ++*completed; },
          [failures](const auto&, const auto&, const auto&) { ++*failures; }, {});
    } catch (const std::bad_alloc&) {
      ++*failures;  // nothing was begun
    }
  };
  forEachAllocation(200, [&](std::size_t n) {
    bool failed = false;
    for (const bool isFailing : {true, false}) {
      *completed = *failures = 0;
      {
        const FailingAllocations failing(isFailing ? n : 0, Failing::kOne);
        start();
        EXPECT_TRUE(eventually([&] { return ends() > 0; }));
        if (isFailing) failed = FailingAllocations::haveFailed();
      }
      awaitEndOfTasks();
      EXPECT_EQ(ends(), 1) << isFailing;
    }
    EXPECT_EQ(*completed, 1) << "the name is still in use";
    return failed;
  });
}

}  // namespace
}  // namespace varo::binary
