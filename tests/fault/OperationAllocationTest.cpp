// Operations with each of their allocations failing, one after another: each comes to one end, and
// what it had claimed is free again.

#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "tests/support/BlobFixture.h"
#include "tests/support/DownloadFixture.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FileAdapterFixture.h"

#include <atomic>
#include <new>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

/// Starts an operation whose n-th allocation fails, then one with memory enough, each until
/// `settle` returns; expects one end of each in `ends`. Whether an allocation failed.
template <typename Start, typename Settle>
bool endsOnceEachTime(std::size_t n, const std::shared_ptr<std::atomic<int>>& ends,
                      const Start& start, const Settle& settle) {
  bool failed = false;
  for (const bool isFailing : {true, false}) {
    *ends = 0;
    {
      const FailingAllocations failing(isFailing ? n : 0, Failing::kOne);
      try {
        start();
      } catch (const std::bad_alloc&) {
        ++*ends;  // nothing was begun
      }
      EXPECT_TRUE(eventually([&] { return *ends > 0; }));
      if (isFailing) failed = FailingAllocations::haveFailed();
    }
    settle();
    EXPECT_EQ(*ends, 1) << isFailing;
  }
  return failed;
}

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
  const auto start = [&] {
    manager->createDownloadTaskForDb(kDatabase, kTable, kColumn, keys, configuration, created);
  };
  const auto settle = [&] {
    manager->clearBinaryDataManagerState();
    awaitEndOfTasks();
  };
  forEachAllocation(200, [&](std::size_t n) {
    sql("UPDATE varosyncBLOBSTOREMANAGER SET state = 101, localPath = ''");
    std::filesystem::remove_all(home_ / "Documents/blobs");
    const bool failed = endsOnceEachTime(n, ends, start, settle);
    EXPECT_EQ(contentOf(pathOf(id)), object_.bytes);
    EXPECT_EQ(stateOf(id), "50");
    return failed;
  });
}

using OnlineDownloadAllocationTest = test::DownloadFixture;

TEST_F(OnlineDownloadAllocationTest, DownloadComesToOneEndAndTheNextOneToItsFile) {
  setTransferPolicy(TransferPolicy::kSafe);
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kFatal);
  const Dictionary parameters{{"fileId", "7"}};
  const Dictionary configuration{{"endpointUrl", "http://store/${fileId}"}};
  const auto manager = std::make_shared<OnlineBinaryDataManager>();
  const auto ends = std::make_shared<std::atomic<int>>(0);
  const auto isCompleted = std::make_shared<std::atomic<bool>>(false);
  const auto start = [&] {
    *isCompleted = false;
    manager->createAndStartOnlineDownloadTaskFor(
        parameters, false, configuration, {}, {}, {},
        [=](const auto&, const auto&, const auto&) {
          *isCompleted = true;
          ++*ends;
        },
        [ends](const auto&, const auto&, const auto&) { ++*ends; }, {});
  };
  forEachAllocation(200, [&](std::size_t n) {
    const bool failed = endsOnceEachTime(n, ends, start, [this] { awaitEndOfTasks(); });
    EXPECT_TRUE(*isCompleted) << "the name is still in use";
    return failed;
  });
}

using Storage = BinaryFileStorageInterface;

class FileAdapterAllocationTest : public FileAdapterFixture {
 protected:
  FileAdapterAllocationTest() {
    setTransferPolicy(TransferPolicy::kSafe);  // where a failed look-up is one end
    VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kFatal);
    const std::string where = json({{"domain", "#middlewaredomain"},
                                    {"relativepath", "/bytes"},
                                    {"uploadMode", "binary"},
                                    {"method", "put"}});
    Array records;
    records.append(Dictionary{{"file_name", "a"}, {"download_template", where}});
    transport_->setHandler(
        [answer = json({{"opstatus", 0}, {"upload_template", where}, {"records", records}})](
            const RecordedRequest&) { return answerWith(200, answer); });
  }

  // Made before any allocation fails, as are all arguments: only the library's own count.
  const std::string url_ = kUrl;
};

TEST_F(FileAdapterAllocationTest, EachOperationEndsOnceWhicheverAllocationFails) {
  const std::optional<Dictionary> ofFile =
      Dictionary{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", "7"}}}};
  const std::optional<Dictionary> upload =
      Dictionary{{"headers", Dictionary{}},
                 {"metadata", Dictionary{{"file_name", "a"}}},
                 {"file", Dictionary{{"rawBytes", Data::fromBytes("bytes")}}},
                 {"chunkSize", 3}};
  const std::pair<const char*, std::function<void(const BinaryBlock&)>> operations[] = {
      {"list", [&](const auto& end) { Storage::getFilesWithUrl(url_, {}, {}, end, end, {}); }},
      {"update", [&](const auto& end) { Storage::updateWithUrl(url_, ofFile, end, end, {}); }},
      {"delete", [&](const auto& end) { Storage::deleteWithUrl(url_, "7", {}, {}, end, end, {}); }},
      {"download",
       [&](const auto& end) { Storage::downloadWithURL(url_, ofFile, end, end, {}, {}); }},
      {"upload",
       [&](const auto& end) { Storage::uploadBinaryWithUrl(url_, {}, upload, end, end, {}, {}); }},
  };
  const auto ends = std::make_shared<std::atomic<int>>(0);
  const auto refusals = std::make_shared<std::atomic<int>>(0);
  const BinaryBlock ended = [ends, refusals](const Value& value) {
    ++*ends;
    if (value.description().find("10002") != std::string::npos) ++*refusals;
  };
  for (const auto& [name, start] : operations) {
    SCOPED_TRACE(name);
    forEachAllocation(50, [&, &operation = start](std::size_t n) {
      const auto begin = [&]() noexcept { operation(ended); };  // these throw nothing
      return endsOnceEachTime(n, ends, begin, [this] { awaitEndOfTasks(); });
    });
  }
  EXPECT_EQ(*refusals, 0) << "a name was still in use";
}

}  // namespace
}  // namespace varo::binary
