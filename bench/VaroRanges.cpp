// The library's side of the figures of ranges over a line with a long way:
//
//   varo_ranges PORT OBJECT RANGE_BYTES PARALLEL DELAY_MS HOME
//
// Brings /blobs/OBJECT of the server at the port of 127.0.0.1 into HOME/Documents/blobs/1, through
// a relay that delays each byte so long on each way, with at most PARALLEL ranges in flight.
// Prints, as JSON, the seconds that it takes.

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
#include "tests/support/TestProxy.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace {

using varo::bench::EndListener;
using varo::bench::Ends;
using varo::bench::numberIn;
using varo::binary::DownloadTask;
using varo::binary::OperationSettings;
using varo::platform::Dictionary;

}  // namespace

int main(int argc, char** argv) {
  const std::int64_t port = argc == 7 ? numberIn(argv[1]) : 0;
  const std::int64_t rangeSize = argc == 7 ? numberIn(argv[3]) : 0;
  const std::int64_t parallel = argc == 7 ? numberIn(argv[4]) : 0;
  const std::int64_t delay = argc == 7 ? numberIn(argv[5]) : 0;
  if (port < 1 || port > 65'535 || rangeSize < 1 || parallel < 1 || delay < 1) {
    fmt::print(stderr, "usage: varo_ranges PORT OBJECT RANGE_BYTES PARALLEL DELAY_MS HOME\n");
    return 2;
  }
  varo::platform::VaroNativeFacade::setLogLevelAndActivateNetworkPersister(
      varo::platform::LogLevel::kError);
  varo::platform::UserDirectories::install(varo::platform::UserDirectories::below(argv[6]));
  const auto settings = std::make_shared<OperationSettings>();
  settings->policy = varo::binary::TransferPolicy::kSafe;
  settings->parallelRanges = static_cast<std::size_t>(parallel);

  bool done = false;
  {
    const varo::test::TestProxy line(
        {.relayTo = static_cast<std::uint16_t>(port), .delay = std::chrono::milliseconds(delay)});
    Ends ends(1);
    const auto listener = std::make_shared<EndListener>(ends);
    const auto task = DownloadTask::create("1");
    task->subscribeForTaskUpdates(listener);
    task->setInputContext({{varo::binary::kBlobId, "1"},
                           {varo::binary::kURL, line.url("http") + "/"},
                           {varo::binary::kScopeName, "blobs"},
                           {varo::binary::kObjectName, argv[2]},
                           {varo::binary::kPrimaryKeys, Dictionary{{"id", "1"}}},
                           {varo::binary::kChunkSizeKey, rangeSize},
                           {varo::binary::kOperationSettings, OperationSettings::value(settings)}});
    const auto start = std::chrono::steady_clock::now();
    task->start();
    done = ends.await();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    fmt::print(R"({{"seconds":{}}})", took.count());
    // The connections end before the line does.
    varo::platform::Runtime::shared().shutdown();
  }
  return done ? 0 : 1;
}
