// A disk that cannot keep what was written: no success is told, and no name stands for the file.

#include "tests/support/BlobFixture.h"
#include "tests/support/FileAdapterFixture.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<bool> isDiskFailing{false};

/// Databases are on another disk.
int syncUnlessFailing(long call, int descriptor) {
  // First of all: other tests let allocations fail, and no sync of a C library throws.
  if (!isDiskFailing) return static_cast<int>(::syscall(call, descriptor));
  const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor));
  const bool isDatabase = path.string().find("WEBSQLDIRECTORY") != std::string::npos;
  if (isDatabase) return static_cast<int>(::syscall(call, descriptor));
  errno = EIO;
  return -1;
}

}  // namespace

extern "C" int fsync(int descriptor) { return syncUnlessFailing(SYS_fsync, descriptor); }
extern "C" int fdatasync(int descriptor) { return syncUnlessFailing(SYS_fdatasync, descriptor); }

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

class SyncFailureTest : public FileAdapterFixture {
 protected:
  SyncFailureTest() {
    setTransferPolicy(TransferPolicy::kSafe);
    transport_->setHandler([](const auto& request) { return serviceAnswer(request); });
  }
  ~SyncFailureTest() override { isDiskFailing = false; }

  /// What the one end of a download says.
  std::string outcome() {
    BinaryFileStorageInterface::downloadWithURL(
        kUrl, Dictionary{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "8"}}}},
        onSuccess(), onFailure(), {}, {});
    const Event end = awaitNext();
    awaitEndOfTasks();
    return end.block + " " + end.value.description();
  }
  /// All files below the home directory.
  [[nodiscard]] std::ptrdiff_t fileCount() const {
    const std::filesystem::recursive_directory_iterator all(home_.path());
    return std::count_if(begin(all), end(all), [](const auto& at) { return at.is_regular_file(); });
  }
};

TEST_F(SyncFailureTest, DownloadFailsAndLeavesNoFile) {
  isDiskFailing = true;
  const std::string failure = outcome();
  EXPECT_TRUE(failure.starts_with("failure ")) << failure;
  EXPECT_NE(failure.find("Input/output error"), std::string::npos) << failure;
  EXPECT_EQ(fileCount(), 0);

  isDiskFailing = false;
  const std::string success = outcome();
  EXPECT_TRUE(success.starts_with("success ")) << success;
  EXPECT_EQ(fileCount(), 1);
}

using BlobSyncFailureTest = test::BlobFixture;

TEST_F(BlobSyncFailureTest, RowNeverSaysMoreThanTheDiskKeeps) {
  const std::string paused = newBlob("paused");
  transport_->hold();
  start(paused);
  release(1);
  awaitHeld(1);
  isDiskFailing = true;
  manager_->pauseDownload(paused, {});
  EXPECT_EQ(awaitNext().block, "start " + paused);
  EXPECT_EQ(stateOf(paused), "103");
  transport_->releaseAll();
  const std::string id = newBlob("whole");
  // The second time all of it is there, and nothing is asked for.
  for (const bool isFailing : {true, true, false}) {
    isDiskFailing = isFailing;
    start(id);
    EXPECT_EQ(awaitNext().error != nullptr, isFailing);
    EXPECT_EQ(stateOf(id), isFailing ? "103" : "50");
    EXPECT_EQ(transport_->requestCount(), 5U);
  }
}

}  // namespace
}  // namespace varo::binary
