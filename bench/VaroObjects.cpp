// The library's side of the figures of object stores, signed:
//
//   varo_objects upload   TEMPLATE_URL FILE OBJECT
//   varo_objects download STORE OBJECT RANGE_BYTES PARALLEL HOME
//
// STORE is host and port; up to PARALLEL ranges are under way. A download is stored in
// HOME/Documents/downloads.

#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "bench/Ends.h"
#include "bench/NumberIn.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace {

using varo::bench::Ends;
using varo::bench::numberIn;
using varo::binary::OnlineBinaryDataManager;
using varo::binary::OnlineBinaryUploadManager;
using varo::binary::OperationSettings;
using varo::platform::Dictionary;
using varo::platform::ErrorPtr;
using varo::platform::LogLevel;
using varo::platform::Value;
using varo::platform::VaroNativeFacade;

// The sandbox's, unless it is told otherwise.
constexpr char kAccessKey[] = "sandbox";
constexpr char kSecretKey[] = "sandbox-secret-key";
constexpr char kRegion[] = "us-east-1";

bool upload(const char* templateUrl, const char* file, const char* object) {
  Ends ends(1);
  OnlineBinaryUploadManager::sharedInstance()->createAndStartOnlineUploadTaskFor(
      Dictionary{{"URL", templateUrl},
                 {"FilePath", file},
                 {"uploadParams", Dictionary{{"objectName", object},
                                             {"regionName", kRegion},
                                             {"accessKeyID", kAccessKey},
                                             {"secretAccessKey", kSecretKey}}}},
      {}, {}, [&ends](const auto&, const auto&, const auto&) { ends.succeeded(); },
      [&ends](const auto&, const Value& error, const auto&) { ends.failed(error); }, std::nullopt);
  return ends.await();
}

struct Ranges {
  std::int64_t size;
  std::int64_t parallel;
};

bool download(const std::string& store, const char* object, const Ranges& ranges,
              const char* home) {
  varo::platform::UserDirectories::install(varo::platform::UserDirectories::below(home));
  const auto settings = std::make_shared<OperationSettings>();
  settings->parallelRanges = static_cast<std::size_t>(ranges.parallel);
  Ends ends(1);
  OnlineBinaryDataManager::sharedInstance()->createAndStartOnlineDownloadTaskFor(
      {{"fileId", object}}, false,
      {{"method", "GET"},
       {"Host", store},
       {"endpointUrl", "http://" + store + "/${fileId}"},
       {"ChunkSize", ranges.size},
       {"Auth", "HMACDigest"},
       {"AuthParameters", Dictionary{{"serviceName", "s3"},
                                     {"regionName", kRegion},
                                     {"objectName", "${fileId}"},
                                     {"accessKeyID", kAccessKey},
                                     {"secretAccessKey", kSecretKey}}}},
      {}, {}, {}, [&ends](const auto&, const auto&, const auto&) { ends.succeeded(); },
      [&ends](const auto&, const ErrorPtr& error, const auto&) { ends.failed(error); },
      Dictionary{{varo::binary::kOperationSettings, OperationSettings::value(settings)}});
  return ends.await();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  const bool isUpload = command == "upload" && argc == 5;
  const bool isDownload = command == "download" && argc == 7;
  const Ranges ranges = {isDownload ? numberIn(argv[4]) : 0, isDownload ? numberIn(argv[5]) : 0};
  if (!isUpload && (ranges.size < 1 || ranges.parallel < 1)) {
    fmt::print(stderr,
               "usage: varo_objects upload TEMPLATE_URL FILE OBJECT\n"
               "       varo_objects download STORE OBJECT RANGE_BYTES PARALLEL HOME\n");
    return 2;
  }
  // Its warnings say which blocks are not there, once an operation.
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  // The compatible one names a download's file anew with every second.
  varo::binary::setTransferPolicy(varo::binary::TransferPolicy::kSafe);
  const bool done =
      isUpload ? upload(argv[2], argv[3], argv[4]) : download(argv[2], argv[3], ranges, argv[6]);
  varo::platform::Runtime::shared().shutdown();
  return done ? 0 : 1;
}
