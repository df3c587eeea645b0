#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Value.h"
#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
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
    // In a process of its own, whose descriptors do not count.
    test::ChildProcess server({.program = VARO_PROGRAM,
                               .arguments = {"--json", "sandbox"},
                               .environment = {},
                               .directory = directory.path()});
    require(test::eventually([&] { return server.output().ends_with('\n'); }), "it is ready");
    const auto ready = platform::json::parse(server.output());
    require(ready.ok(), "it says where it is");
    const std::string url = ready->dictionaryValue()["url"].textValue();
    const std::string file = directory.path() + "/small";
    test::writeFile(file, std::string(4096, 'x'));
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
          url, "UploadInputTypeLocalFilePath",
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
