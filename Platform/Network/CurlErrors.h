#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Network/CurlProxy.h"
#include "Platform/Network/TransportFailure.h"

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace varo::platform {

// What libcurl's codes say to people. Private to the curl adapter.

/// An error with libcurl's own code, also under `kErrorCurlCodeKey`. `url` must be free of secrets.
/// `wasSent`: whether a byte of the request may have left.
[[nodiscard]] ErrorPtr makeCurlError(CURLcode code, std::string_view text, const std::string& url,
                                     bool wasSent = true);

/// The same with a sentence for the code, and behind it what libcurl has to add, if anything.
[[nodiscard]] ErrorPtr describeCurlError(CURLcode code, std::string_view detail,
                                         const std::string& url, bool wasSent = true);

/// The error of an exchange over `proxy`, whose address it names. `easy` still has what libcurl
/// says of the exchange.
[[nodiscard]] ErrorPtr describeProxiedError(CURL* easy, CURLcode code, std::string_view detail,
                                            const CurlProxy& proxy, const std::string& url,
                                            bool wasSent);

/// The proxy answered 407 in place of the server.
[[nodiscard]] ErrorPtr makeProxyRefusal(const CurlProxy& proxy, const std::string& url);

}  // namespace varo::platform
