#include "Client/StoreClock.h"

#include "Client/ObjectAnswers.h"
#include "Platform/Foundation/TimeText.h"

namespace varo::detail {

namespace {

/// Stores tolerate many minutes, and their "Date" has seconds.
constexpr std::chrono::minutes kWorthCorrecting{1};

}  // namespace

bool StoreClock::correct(const platform::HttpResponse& refusal,
                         std::chrono::system_clock::time_point signedAt) {
  const auto store = platform::httpTime(headerOf(refusal, "Date").value_or(""));
  if (!store || std::chrono::abs(*store - signedAt) < kWorthCorrecting) return false;
  difference_ = *store - platform::Clock::system().now();
  return true;
}

}  // namespace varo::detail
