// The library's side of the figures of object stores, signed:
//
//   varo_objects upload   TEMPLATE_URL FILE OBJECT
//   varo_objects download STORE OBJECT RANGE_BYTES HOME
//
// STORE is host and port. A download is stored in HOME/Documents/downloads.

#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "bench/Ends.h"
#include "bench/NumberIn.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace {

using varo::bench::Ends;
using varo::bench::numberIn;
using varo::binary::OnlineBinaryDataManager;
using varo::binary::OnlineBinaryUploadManager;
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

bool download(const std::string& store, const char* object, std::int64_t rangeSize,
              const char* home) {
  varo::platform::UserDirectories::install(varo::platform::UserDirectories::below(home));
  Ends ends(1);
  OnlineBinaryDataManager::sharedInstance()->createAndStartOnlineDownloadTaskFor(
      {{"fileId", object}}, false,
      {{"method", "GET"},
       {"Host", store},
       {"endpointUrl", "http://" + store + "/${fileId}"},
       {"ChunkSize", rangeSize},
       {"Auth", "HMACDigest"},
       {"AuthParameters", Dictionary{{"serviceName", "s3"},
                                     {"regionName", kRegion},
                                     {"objectName", "${fileId}"},
                                     {"accessKeyID", kAccessKey},
                                     {"secretAccessKey", kSecretKey}}}},
      {}, {}, {}, [&ends](const auto&, const auto&, const auto&) { ends.succeeded(); },
      [&ends](const auto&, const ErrorPtr& error, const auto&) { ends.failed(error); },
      std::nullopt);
  return ends.await();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  const bool isUpload = command == "upload" && argc == 5;
  const std::int64_t rangeSize = command == "download" && argc == 6 ? numberIn(argv[4]) : 0;
  if (!isUpload && rangeSize < 1) {
    fmt::print(stderr,
               "usage: varo_objects upload TEMPLATE_URL FILE OBJECT\n"
               "       varo_objects download STORE OBJECT RANGE_BYTES HOME\n");
    return 2;
  }
  // Its warnings say which blocks are not there, once an operation.
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  // The compatible one names a download's file anew with every second.
  varo::binary::setTransferPolicy(varo::binary::TransferPolicy::kSafe);
  const bool done =
      isUpload ? upload(argv[2], argv[3], argv[4]) : download(argv[2], argv[3], rangeSize, argv[5]);
  varo::platform::Runtime::shared().shutdown();
  return done ? 0 : 1;
}
