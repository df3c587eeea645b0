// The library's side of the transfer figures, through the public facade:
//
//   varo_transfer upload      SERVICE_URL FILE CHUNK_BYTES
//   varo_transfer upload-many SERVICE_URL FILE CHUNK_BYTES COUNT
//   varo_transfer download    SERVICE_URL FILE_ID HOME
//
// `upload-many` starts COUNT uploads of the file at once. A download is stored in HOME/Downloads.

#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "bench/Ends.h"
#include "bench/NumberIn.h"

#include <fmt/format.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using varo::bench::Ends;
using varo::bench::numberIn;
using varo::binary::BinaryFileStorageInterface;
using varo::platform::Dictionary;
using varo::platform::LogLevel;
using varo::platform::Value;
using varo::platform::VaroNativeFacade;

bool upload(const std::string& service, const std::string& file, std::int64_t chunkSize,
            std::int64_t count) {
  Ends ends(count);
  std::atomic<std::int64_t> chunks = 0;
  for (std::int64_t number = 0; number < count; ++number) {
    BinaryFileStorageInterface::uploadBinaryWithUrl(
        service, "UploadInputTypeLocalFilePath",
        Dictionary{{"headers", Dictionary{}},
                   {"metadata", Dictionary{{"file_name", "upload.bin"}}},
                   {"file", Dictionary{{"filePath", file}}},
                   {"chunkSize", chunkSize}},
        [&ends](const Value&) { ends.succeeded(); }, [&ends](const Value& e) { ends.failed(e); },
        [&chunks](const Value&) { ++chunks; }, Dictionary{{"chunkSize", chunkSize}});
  }
  return ends.await();
}

bool download(const std::string& service, const std::string& fileId, const std::string& home) {
  varo::platform::UserDirectories::install(varo::platform::UserDirectories::below(home));
  Ends ends(1);
  BinaryFileStorageInterface::downloadWithURL(
      service, Dictionary{{"headers", Dictionary{}}, {"metadata", Dictionary{{"file_id", fileId}}}},
      [&ends](const Value&) { ends.succeeded(); }, [&ends](const Value& e) { ends.failed(e); },
      [](const Value&) {}, Dictionary{});
  return ends.await();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  const bool isUpload = command == "upload" && argc == 5;
  const bool isMany = command == "upload-many" && argc == 6;
  const bool isDownload = command == "download" && argc == 5;
  const std::int64_t chunkSize = isUpload || isMany ? numberIn(argv[4]) : 1;
  const std::int64_t count = isMany ? numberIn(argv[5]) : 1;
  if (!(isUpload || isMany || isDownload) || chunkSize < 1 || count < 1) {
    fmt::print(stderr,
               "usage: varo_transfer upload SERVICE_URL FILE CHUNK_BYTES\n"
               "       varo_transfer upload-many SERVICE_URL FILE CHUNK_BYTES COUNT\n"
               "       varo_transfer download SERVICE_URL FILE_ID HOME\n");
    return 2;
  }
  // Its warnings say which blocks are not there, once an operation.
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  const bool done =
      isDownload ? download(argv[2], argv[3], argv[4]) : upload(argv[2], argv[3], chunkSize, count);
  varo::platform::Runtime::shared().shutdown();
  return done ? 0 : 1;
}
