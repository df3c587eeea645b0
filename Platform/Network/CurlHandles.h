#pragma once

#include <curl/curl.h>

#include <memory>

namespace varo::platform {

// libcurl's handles, each released by its own function. Private to the curl adapter.

struct CurlEasyDeleter {
  void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};
struct CurlMultiDeleter {
  // Fails only for handles that are still attached or after a callback of it; there are none.
  void operator()(CURLM* handle) const noexcept { static_cast<void>(curl_multi_cleanup(handle)); }
};
struct CurlShareDeleter {
  // Fails only while an easy handle uses the share; each gives it up first.
  void operator()(CURLSH* handle) const noexcept { static_cast<void>(curl_share_cleanup(handle)); }
};
struct CurlListDeleter {
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};
struct CurlTextDeleter {
  void operator()(char* text) const noexcept { curl_free(text); }
};
struct CurlUrlDeleter {
  void operator()(CURLU* handle) const noexcept { curl_url_cleanup(handle); }
};

using CurlEasy = std::unique_ptr<CURL, CurlEasyDeleter>;
using CurlMulti = std::unique_ptr<CURLM, CurlMultiDeleter>;
using CurlShare = std::unique_ptr<CURLSH, CurlShareDeleter>;
using CurlList = std::unique_ptr<curl_slist, CurlListDeleter>;
using CurlText = std::unique_ptr<char, CurlTextDeleter>;
using CurlUrlHandle = std::unique_ptr<CURLU, CurlUrlDeleter>;

}  // namespace varo::platform
