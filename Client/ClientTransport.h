#pragma once

#include "Platform/Network/CurlHttpTransport.h"
#include "Platform/Network/NetworkConfiguration.h"

#include <memory>

namespace varo::detail {

/// A transport of one client's own: its connections and cookies are nobody else's. The runtime's
/// shutdown ends its transfers.
[[nodiscard]] std::shared_ptr<platform::HttpTransport> makeClientTransport(
    const platform::NetworkConfiguration& configuration);

}  // namespace varo::detail
