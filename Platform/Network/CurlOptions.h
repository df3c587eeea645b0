#pragma once

#include <curl/curl.h>

#include <type_traits>

namespace varo::platform {

/// Sets options of an easy handle and remembers the first that was refused. Private to the curl
/// adapter.
class CurlOptions {
 public:
  explicit CurlOptions(CURL* easy) noexcept : easy_(easy) {}

  template <typename T>
  void set(CURLoption option, T value) noexcept {
    // Anything shorter would be read beyond its end: the function is variadic.
    static_assert(std::is_same_v<T, long> || std::is_same_v<T, curl_off_t> ||
                  std::is_pointer_v<T> || std::is_null_pointer_v<T>);
    const CURLcode code = (curl_easy_setopt)(easy_, option, value);
    if (code != CURLE_OK && first_ == CURLE_OK) first_ = code;
  }

  [[nodiscard]] CURLcode firstError() const noexcept { return first_; }

 private:
  CURL* const easy_;
  CURLcode first_ = CURLE_OK;
};

}  // namespace varo::platform
