#include "Platform/Network/CurlHandles.h"
#include "Platform/Network/CurlMovement.h"
#include "tests/support/ScriptedServer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>

namespace varo::test {
namespace {

using namespace platform;

/// Asks, at each piece of a body that libcurl hands out, as if the whole time-out had passed since
/// the piece before: the clock is the test's.
struct Watch {
  static constexpr std::chrono::milliseconds kStall{60'000};

  static std::size_t onBody(char* /*bytes*/, std::size_t size, std::size_t count, void* self) {
    auto& watch = *static_cast<Watch*>(self);
    watch.now += kStall;
    EXPECT_FALSE(watch.movement.hasStalled(watch.easy.get(), watch.now, kStall)) << "it moves";
    const auto soon = watch.now + kStall - std::chrono::milliseconds(1);
    EXPECT_FALSE(watch.movement.hasStalled(watch.easy.get(), soon, kStall));
    EXPECT_TRUE(watch.movement.hasStalled(watch.easy.get(), watch.now + kStall, kStall));
    ++watch.pieces;
    return size * count;
  }

  const CurlEasy easy{curl_easy_init()};
  CurlMovement::Clock::time_point now = CurlMovement::Clock::now();
  CurlMovement movement;
  int pieces = 0;
};

TEST(CurlMovementTest, BodyThatMovesNeverStallsHoweverLongItTakes) {
  const std::string body(64 * std::size_t{1024}, 'x');
  ScriptedServer server([&body](const WireRequest&) { return reply(200, body); });
  Watch watch;
  watch.movement.begin(watch.now);
  const std::string url = server.url("/");
  curl_easy_setopt(watch.easy.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(watch.easy.get(), CURLOPT_BUFFERSIZE, 1024L);
  curl_easy_setopt(watch.easy.get(), CURLOPT_WRITEFUNCTION, &Watch::onBody);
  curl_easy_setopt(watch.easy.get(), CURLOPT_WRITEDATA, &watch);
  ASSERT_EQ(curl_easy_perform(watch.easy.get()), CURLE_OK);
  EXPECT_GT(watch.pieces, 10);
}

}  // namespace
}  // namespace varo::test
