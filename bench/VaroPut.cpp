// The upload of a signed object, by a template that a service hands out:
//
//   varo_put TEMPLATE_URL FILE OBJECT

#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "bench/Ends.h"

#include <fmt/format.h>

#include <optional>

namespace {

using varo::bench::Ends;
using varo::binary::OnlineBinaryUploadManager;
using varo::platform::Dictionary;
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    fmt::print(stderr, "usage: varo_put TEMPLATE_URL FILE OBJECT\n");
    return 2;
  }
  // Its warnings say which blocks are not there, once an operation.
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  const bool done = upload(argv[1], argv[2], argv[3]);
  varo::platform::Runtime::shared().shutdown();
  return done ? 0 : 1;
}
