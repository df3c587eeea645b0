#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Value.h"
#include "Sandbox/SandboxServer.h"
#include "tests/support/Files.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/TemporaryDirectory.h"

#include <atomic>
#include <latch>
#include <string>
#include <sys/resource.h>

namespace varo::binary {
namespace {

using platform::Dictionary;
using platform::Value;
using test::inOwnProcess;
using test::require;

TEST(ManyUploadsTest, MoreThanTheProcessMayHaveOpenFilesForAllEndWell) {
  inOwnProcess([] {
    const test::TemporaryDirectory directory;
    sandbox::SandboxOptions options;
    options.dataDirectory = directory.path();
    sandbox::SandboxServer server(options);
    require(!server.start(), "the service runs");
    const std::string file = directory.path() + "/small";
    test::writeFile(file, std::string(4096, 'x'));
    // The server's side of the connections is in this process, too.
    const rlimit few{128, 128};
    require(setrlimit(RLIMIT_NOFILE, &few) == 0, "the limit is set");

    constexpr int kUploads = 300;
    std::latch ends{kUploads};
    std::atomic<int> good{0};
    for (int number = 0; number < kUploads; ++number) {
      const auto end = [&](bool isGood) {
        return [&, isGood](const Value& /*result*/) {
          if (isGood) ++good;
          ends.count_down();
        };
      };
      BinaryFileStorageInterface::uploadBinaryWithUrl(
          server.url(), "UploadInputTypeLocalFilePath",
          Dictionary{{"headers", Dictionary{}},
                     {"metadata", Dictionary{{"file_name", "small"}}},
                     {"file", Dictionary{{"filePath", file}}}},
          end(true), end(false), [](const Value&) {}, Dictionary{});
    }
    ends.wait();
    require(good == kUploads, "each has ended well");
  });
}

}  // namespace
}  // namespace varo::binary
