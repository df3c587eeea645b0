// Each operation of the file adapter with each of its allocations failing: it ends once.

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"
#include "tests/support/Await.h"
#include "tests/support/CallLog.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/TemporaryDirectory.h"

#include <gmock/gmock.h>

#include <atomic>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using Storage = BinaryFileStorageInterface;

// Made before any allocation fails, as are all arguments: only the library's own count.
const std::string kUrl = "http://127.0.0.1/services/storage";

std::string json(const Dictionary& dictionary) {
  return VROCommonUtility::getJSONStringFromNSDictionary(dictionary, nullptr).value();
}

class FileAdapterAllocationTest : public testing::Test {
 protected:
  FileAdapterAllocationTest() {
    Storage::initialize();  // the manager is a task and stays
    tasksBefore_ = VSTask::liveCount();
    setTransferPolicy(TransferPolicy::kSafe);  // where a failed look-up is one end
    VRONetworkUtility::setTransport(transport_);
    UserDirectories::install(UserDirectories::below(home_.path()));
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
  ~FileAdapterAllocationTest() override {
    VRONetworkUtility::setTransport(nullptr);
    UserDirectories::install(nullptr);
    setTransferPolicy(TransferPolicy::kCompatible);
  }

  /// Starts an operation with each of its allocations failing, one after another; after each, the
  /// same operation has its way.
  void expectOneEndEach(const std::function<void(const BinaryBlock& ended)>& start) {
    bool failed = true;
    // From 0, which never fails: what is made once is made then.
    std::size_t n = 0;
    for (; failed && !HasFailure(); ++n) {
      SCOPED_TRACE("allocation " + std::to_string(n));
      const auto ends = std::make_shared<std::atomic<int>>(0);
      const BinaryBlock ended = [ends](const Value&) { ++*ends; };
      {
        const FailingAllocations failing(n, Failing::kOne);
        start(ended);
        (void)eventually([&] { return *ends > 0; });
        failed = n == 0 || FailingAllocations::haveFailed();
      }
      EXPECT_TRUE(eventually([&] { return VSTask::liveCount() == tasksBefore_; })) << "not freed";
      EXPECT_EQ(*ends, 1);

      const auto answers = std::make_shared<CallLog<std::string>>();
      start([answers](const Value& answer) { answers->add(answer.description()); });
      EXPECT_TRUE(eventually([&] { return answers->calls().size() == 1; }));
      EXPECT_THAT(answers->calls(), testing::Each(testing::Not(testing::HasSubstr("10002"))));
      EXPECT_TRUE(eventually([&] { return VSTask::liveCount() == tasksBefore_; }));
    }
    EXPECT_GT(n, 50U) << "too little has been tried";
  }

  std::size_t tasksBefore_ = 0;
  const TemporaryDirectory home_;
  const std::shared_ptr<FakeHttpTransport> transport_ = std::make_shared<FakeHttpTransport>();
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
      {"list", [](const auto& end) { Storage::getFilesWithUrl(kUrl, {}, {}, end, end, {}); }},
      {"update", [&](const auto& end) { Storage::updateWithUrl(kUrl, ofFile, end, end, {}); }},
      {"delete", [](const auto& end) { Storage::deleteWithUrl(kUrl, "7", {}, {}, end, end, {}); }},
      {"download",
       [&](const auto& end) { Storage::downloadWithURL(kUrl, ofFile, end, end, {}, {}); }},
      {"upload",
       [&](const auto& end) { Storage::uploadBinaryWithUrl(kUrl, {}, upload, end, end, {}, {}); }},
  };
  for (const auto& [name, start] : operations) {
    SCOPED_TRACE(name);
    expectOneEndEach(start);
  }
}

}  // namespace
}  // namespace varo::binary
