#include "Platform/Foundation/Runtime.h"
#include "varo/runtime.h"
#include "varo/version.h"

#include <algorithm>
#include <future>
#include <memory>
#include <system_error>
#include <thread>

namespace varo {

namespace {

/// A wait without an end would overflow the clock.
constexpr std::chrono::hours kLongestWait{24 * 365};

}  // namespace

std::string_view version() noexcept { return VARO_VERSION; }

bool shutDown(std::chrono::milliseconds most) {
  platform::Runtime& runtime = platform::Runtime::shared();
  if (runtime.pool().runsInThisThread()) {
    runtime.shutdown();  // ends what is waited for; the rest follows from elsewhere
    return false;
  }
  // A callback may never return, and joining its thread would wait for it.
  const auto done = std::make_shared<std::promise<void>>();
  std::future<void> joined = done->get_future();
  try {
    std::thread([&runtime, done] {
      runtime.shutdown();
      done->set_value();
    }).detach();
  } catch (const std::system_error&) {
    runtime.shutdown();  // there is no thread for it
    return true;
  }
  return joined.wait_for(std::min<std::chrono::milliseconds>(most, kLongestWait)) ==
         std::future_status::ready;
}

}  // namespace varo
