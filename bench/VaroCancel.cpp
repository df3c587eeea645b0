// A download that is ended early, for the figure of what still arrives:
//
//   varo_cancel pause|stop URL HOME AFTER_MS
//
// Asks for one range of 64 MiB, pauses or stops the download AFTER_MS milliseconds later, and
// prints the time of that in nanoseconds of the monotonic clock.

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "bench/NumberIn.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <string_view>
#include <thread>

namespace {

namespace binary = varo::binary;
namespace platform = varo::platform;

constexpr std::int64_t kRange = std::int64_t{64} * 1024 * 1024;
/// For what arrives after the end, if anything does.
constexpr std::chrono::milliseconds kAftermath{300};

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  if ((command != "pause" && command != "stop") || argc != 5) {
    fmt::print(stderr, "usage: varo_cancel pause|stop URL HOME AFTER_MS\n");
    return 2;
  }
  platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(platform::LogLevel::kError);
  platform::UserDirectories::install(platform::UserDirectories::below(argv[3]));
  const auto task = binary::DownloadTask::create("7");
  task->setInputContext({{binary::kBlobId, "7"},
                         {binary::kURL, argv[2]},
                         {binary::kOnlineDownloadTask, true},
                         {binary::kChunkSizeKey, kRange}});
  task->start();
  std::this_thread::sleep_for(std::chrono::milliseconds(varo::bench::numberIn(argv[4])));
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  command == "stop" ? task->stop() : task->pauseDownload();
  std::this_thread::sleep_for(kAftermath);
  fmt::print("{}\n", std::chrono::nanoseconds(now).count());
  platform::Runtime::shared().shutdown();
  return 0;
}
