#pragma once

#include "Platform/Network/CurlOptions.h"
#include "Platform/Network/CurlProxy.h"
#include "Platform/Network/NetworkConfiguration.h"

#include <chrono>
#include <cstddef>
#include <string>

namespace varo::platform {

// The options of an exchange that do not come from its request. Private to the curl adapter.

/// Whom a connection is trusted to. `configuration` must outlive the exchange.
void setSecurity(CurlOptions& options, const NetworkConfiguration& configuration);

/// The way to the server; null: the direct one, whatever the environment names.
void setProxy(CurlOptions& options, const CurlProxy* proxy);

/// How it is made. `bufferSize`: bytes that are received at once, at most.
void setConnection(CurlOptions& options, std::chrono::milliseconds connectTimeout, bool isHttps,
                   std::size_t bufferSize);

/// Which file or directory of `configuration` an error of this code is about; empty for none.
[[nodiscard]] std::string blamedFile(CURLcode code, const NetworkConfiguration& configuration);

}  // namespace varo::platform
