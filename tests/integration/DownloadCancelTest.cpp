#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/Await.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryDirectory.h"

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;

constexpr std::uint64_t kKiB = 1024;
constexpr std::uint64_t kRange = 64 * kKiB * kKiB;

TEST(DownloadCancelTest, LittleOfALargeRangeArrivesAfterAPauseOrStop) {
  const TemporaryDirectory home;
  UserDirectories::install(UserDirectories::below(home.path()));
  for (const bool stops : {false, true}) {
    // 800 KiB a second: the whole range would take more than a minute.
    ScriptedServer server([](const WireRequest&) {
      WireReply slow;
      slow.send("HTTP/1.1 206 Partial Content\r\nContent-Length: " + std::to_string(kRange) +
                "\r\nContent-Range: bytes 0-" + std::to_string(kRange - 1) + "/*\r\n\r\n");
      for (std::uint64_t sent = 0; sent < kRange; sent += 8 * kKiB) {
        slow.send(std::string(8 * kKiB, 'x')).wait(std::chrono::milliseconds(10));
      }
      return slow;
    });
    const auto task = DownloadTask::create("7");
    task->setInputContext({{kBlobId, "7"},
                           {kURL, server.url("/")},
                           {kOnlineDownloadTask, true},
                           {kChunkSizeKey, kRange}});
    task->start();
    ASSERT_TRUE(eventually([&] { return server.sentBytes() > 64 * kKiB; }));
    const std::uint64_t before = server.sentBytes();
    stops ? task->stop() : task->pauseDownload();
    ASSERT_TRUE(eventually([&] { return server.endedCount() == 1; }));
    EXPECT_LE(server.sentBytes() - before, 256 * kKiB);
    if (!stops) {
      EXPECT_TRUE(eventually([&] { return task->state() == TaskState::Paused; }));
      task->stop();
    }
  }
  UserDirectories::install(nullptr);
}

}  // namespace
}  // namespace varo::binary
