#include "Platform/System/TcpCounters.h"

namespace varo::platform::system {

std::optional<TcpCounters> tcpCountersOf(int /*socket*/) noexcept { return std::nullopt; }

}  // namespace varo::platform::system
