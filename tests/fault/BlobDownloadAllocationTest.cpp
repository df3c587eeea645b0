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

class BlobDownloadAllocationTest : public BlobFixture {};

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
  const std::size_t atRest = VSTask::liveCount();
  std::size_t n = 0;
  for (bool failed = true; failed && !HasFailure(); ++n) {
    SCOPED_TRACE("allocation " + std::to_string(n));
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
        if (isFailing) failed = n == 0 || FailingAllocations::haveFailed();
      }
      manager->clearBinaryDataManagerState();
      EXPECT_TRUE(eventually([&] { return VSTask::liveCount() == atRest; })) << "not freed";
      EXPECT_EQ(*ends, 1) << isFailing;
    }
    EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
    EXPECT_EQ(stateOf(id), "50");
  }
  EXPECT_GT(n, 200U) << "too little has been tried";
}

}  // namespace
}  // namespace varo::binary
