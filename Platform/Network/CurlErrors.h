#pragma once

#include "Platform/Foundation/Error.h"

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

}  // namespace varo::platform
