// The download of a blob with each of its allocations failing: each block comes once, and what was
// claimed is free again.

#include "Platform/Logging/VaroNativeFacade.h"
#include "tests/support/BlobFixture.h"
#include "tests/support/FailingAllocations.h"

#include <atomic>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

using BlobDownloadAllocationTest = test::BlobFixture;

TEST_F(BlobDownloadAllocationTest, DownloadComesToOneEndAndTheNextOneToItsFile) {
  setTransferPolicy(TransferPolicy::kSafe);
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kFatal);
  addBlob("a", 7, 101);
  const Dictionary keys{{"pk", "a"}};
  const Dictionary configuration = config();
  const std::string id = "7";
  const auto ends = std::make_shared<std::atomic<int>>(0);
  const DownloadBlock ended = [ends](const auto&, const auto&, const auto&) { ++*ends; };
  const auto manager = manager_;
  const BlobCreationBlock created = [&](const ErrorPtr& error, const auto&) {
    try {
      error == nullptr ? manager->startDownload(id, ended) : void(++*ends);
    } catch (const std::bad_alloc&) {
      ++*ends;  // where its arguments were copied
    }
  };
  forEachAllocation(200, [&](std::size_t n) {
    bool failed = false;
    sql("UPDATE varosyncBLOBSTOREMANAGER SET state = 101, localPath = ''");
    std::filesystem::remove_all(home_ / "Documents/blobs");
    for (const bool isFailing : {true, false}) {
      *ends = 0;
      {
        const FailingAllocations failing(isFailing ? n : 0, Failing::kOne);
        try {
          manager->createDownloadTaskForDb(kDatabase, kTable, kColumn, keys, configuration,
                                           created);
        } catch (const std::bad_alloc&) {
          ++*ends;  // nothing was begun
        }
        EXPECT_TRUE(eventually([&] { return *ends > 0; }));
        if (isFailing) failed = FailingAllocations::haveFailed();
      }
      manager->clearBinaryDataManagerState();
      awaitEndOfTasks();
      EXPECT_EQ(*ends, 1) << isFailing;
    }
    EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
    EXPECT_EQ(stateOf(id), "50");
    return failed;
  });
}

}  // namespace
}  // namespace varo::binary
