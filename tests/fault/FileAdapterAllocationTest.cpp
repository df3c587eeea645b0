// Each operation of the file adapter with each of its allocations failing: it ends once.

#include "Platform/Logging/VaroNativeFacade.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FileAdapterFixture.h"

#include <atomic>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
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
  /// Starts an operation with each of its allocations failing, one after another; after each, the
  /// same operation has its way.
  void expectOneEndEach(const std::function<void(const BinaryBlock& ended)>& start) {
    forEachAllocation(50, [&](std::size_t n) {
      bool failed = false;
      const auto ends = std::make_shared<std::atomic<int>>(0);
      const BinaryBlock ended = [ends](const Value&) { ++*ends; };
      {
        const FailingAllocations failing(n, Failing::kOne);
        start(ended);
        (void)eventually([&] { return *ends > 0; });
        failed = FailingAllocations::haveFailed();
      }
      awaitEndOfTasks();
      EXPECT_EQ(*ends, 1);
      start(block("again"));
      EXPECT_THAT(awaitNext().value.description(), testing::Not(testing::HasSubstr("10002")));
      awaitEndOfTasks();
      return failed;
    });
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
  for (const auto& [name, start] : operations) {
    SCOPED_TRACE(name);
    expectOneEndEach(start);
  }
}

}  // namespace
}  // namespace varo::binary
