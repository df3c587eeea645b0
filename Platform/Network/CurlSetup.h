#pragma once

#include "Platform/Network/CurlOptions.h"
#include "Platform/Network/NetworkConfiguration.h"

#include <chrono>
#include <cstddef>

namespace varo::platform {

// The options of an exchange that do not come from its request. Private to the curl adapter.

/// Whom a connection is trusted to. `configuration` must outlive the exchange.
void setSecurity(CurlOptions& options, const NetworkConfiguration& configuration);

/// How it is made. `bufferSize`: bytes that are received at once, at most.
void setConnection(CurlOptions& options, std::chrono::milliseconds connectTimeout, bool isHttps,
                   std::size_t bufferSize);

}  // namespace varo::platform
