// The library's side of the figures of offline blobs:
//
//   varo_blobs managed|timed|task SERVICE_URL OBJECT RANGE_BYTES PARALLEL COUNT HOME
//   varo_blobs schema
//
// Brings COUNT copies of SERVICE_URL/blobs/OBJECT into HOME/Documents/blobs, all asked for at once,
// each with up to PARALLEL ranges under way:
// `managed` for the records 1 to COUNT of the table "records" in HOME's database "sync.db" through
// the manager, `timed` likewise, `task` with bare download tasks, which know no database. `timed`
// prints, as JSON, the seconds from the first create to the last end, how many of them a thread was
// in SQLite, and how often the process has waited for the disk. `schema` prints the statement that
// makes the table of blobs.

#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "bench/EndListener.h"
#include "bench/Ends.h"
#include "bench/NumberIn.h"
#include "bench/SqliteClock.h"
#include "bench/SyncCount.h"

#include <fmt/format.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace {

using varo::bench::EndListener;
using varo::bench::Ends;
using varo::bench::numberIn;
using varo::binary::BinaryDataManager;
using varo::binary::DownloadTask;
using varo::binary::OperationSettings;
using varo::platform::Dictionary;
using varo::platform::ErrorPtr;
using varo::platform::LogLevel;
using varo::platform::VaroNativeFacade;

constexpr char kDatabase[] = "sync.db";
constexpr char kTable[] = "records";
constexpr char kColumn[] = "image";
constexpr char kKey[] = "id";
constexpr char kScope[] = "blobs";

void downloadManaged(const Dictionary& config, std::int64_t count, Ends& ends) {
  const auto& manager = BinaryDataManager::sharedInstance();
  for (std::int64_t record = 1; record <= count; ++record) {
    manager->createDownloadTaskForDb(
        kDatabase, kTable, kColumn, {{kKey, std::to_string(record)}}, config,
        [&ends, &manager](const ErrorPtr& error, const auto& blobId) {
          if (error != nullptr) return ends.failed(error);
          manager->startDownload(blobId,
                                 [&ends](const auto&, const ErrorPtr& failure, const auto&) {
                                   failure == nullptr ? ends.succeeded() : ends.failed(failure);
                                 });
        });
  }
}

/// Tasks and listener, which nobody else holds.
struct BareDownloads {
  std::shared_ptr<EndListener> listener;
  std::vector<std::shared_ptr<DownloadTask>> tasks;
};

BareDownloads downloadBare(const Dictionary& config, std::int64_t count, Ends& ends) {
  BareDownloads downloads{std::make_shared<EndListener>(ends), {}};
  for (std::int64_t record = 1; record <= count; ++record) {
    const std::string blobId = std::to_string(record);
    Dictionary input = config;
    input.set(varo::binary::kBlobId, blobId);
    input.set(varo::binary::kPrimaryKeys, Dictionary{{kKey, blobId}});
    const auto task = downloads.tasks.emplace_back(DownloadTask::create(blobId));
    task->subscribeForTaskUpdates(downloads.listener);
    task->setInputContext(input);
    task->start();
  }
  return downloads;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  if (argc == 2 && command == "schema") {
    fmt::print("{}\n", varo::binary::blobs::kCreateTable);
    return 0;
  }
  const std::int64_t rangeSize = argc == 8 ? numberIn(argv[4]) : 0;
  const std::int64_t parallel = argc == 8 ? numberIn(argv[5]) : 0;
  const std::int64_t count = argc == 8 ? numberIn(argv[6]) : 0;
  const bool isKnown = command == "managed" || command == "timed" || command == "task";
  if (!isKnown || rangeSize < 1 || parallel < 1 || count < 1) {
    fmt::print(stderr,
               "usage: varo_blobs managed|timed|task SERVICE_URL OBJECT RANGE_BYTES PARALLEL COUNT "
               "HOME\n"
               "       varo_blobs schema\n");
    return 2;
  }
  // Its warnings say which blocks are not there, once an operation.
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  varo::platform::UserDirectories::install(varo::platform::UserDirectories::below(argv[7]));
  const auto settings = std::make_shared<OperationSettings>();
  settings->parallelRanges = static_cast<std::size_t>(parallel);
  const Dictionary config{{varo::binary::kURL, std::string(argv[2]) + "/"},
                          {varo::binary::kScopeName, kScope},
                          {varo::binary::kObjectName, argv[3]},
                          {varo::binary::kChunkSizeKey, rangeSize},
                          {varo::binary::kOperationSettings, OperationSettings::value(settings)}};
  Ends ends(count);
  BareDownloads bare;
  const auto start = std::chrono::steady_clock::now();
  if (command == "task") {
    bare = downloadBare(config, count, ends);
  } else {
    downloadManaged(config, count, ends);
  }
  const bool done = ends.await();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  if (command == "timed") {
    fmt::print(R"({{"seconds":{},"sqlite":{},"syncs":{}}})", took.count(),
               varo::bench::timeInSqlite().count(), varo::bench::syncCount());
  }
  varo::platform::Runtime::shared().shutdown();
  return done ? 0 : 1;
}
