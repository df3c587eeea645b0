#include "Platform/Network/CurlUrl.h"

#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/UrlEncoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <utility>

namespace varo::platform {
namespace {

/// The path is the server's business: "/a/../b" is sent as it is, as object keys need it.
constexpr unsigned int kParseFlags = CURLU_PATH_AS_IS;

ErrorPtr invalidUrl(std::string_view reason) {
  return makeTransportError(HttpTransportError::kInvalidUrl,
                            fmt::format("The address is not valid: {}.", reason));
}

std::string part(CURLU* handle, CURLUPart which, unsigned int flags = 0) {
  char* text = nullptr;
  if (curl_url_get(handle, which, &text, flags) != CURLUE_OK) return {};
  const CurlText owner(text);
  return text;
}

/// Some parsers end the host at a backslash, others do not: nobody means such an address well.
bool hasBackslashInAuthority(const std::string& url) {
  const std::size_t start = url.find("//");
  if (start == std::string::npos) return false;
  const std::size_t end = url.find_first_of("/?#", start + 2);
  return url.find('\\', start) < std::min(end, url.size());
}

ErrorPtr setUrl(CURLU* handle, const std::string& url) {
  if (url.empty()) return invalidUrl("it is empty");
  if (url.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
    return invalidUrl("it has a line break or NUL");
  }
  if (hasBackslashInAuthority(url)) return invalidUrl("its host has a backslash");
  const std::string encoded = encodeForbiddenBytes(url);
  const CURLUcode code = curl_url_set(handle, CURLUPART_URL, encoded.c_str(), kParseFlags);
  if (code != CURLUE_OK) return invalidUrl(curl_url_strerror(code));
  return nullptr;
}

}  // namespace

CurlUrl::CurlUrl(CurlUrlHandle handle)
    : handle_(std::move(handle)),
      scheme_(lowerCase(part(handle_.get(), CURLUPART_SCHEME))),
      host_(lowerCase(part(handle_.get(), CURLUPART_HOST))),
      port_(part(handle_.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT)) {}

std::string CurlUrl::safeText() const {
  // The parts that go are set to nothing, in a copy.
  const CurlUrlHandle copy(curl_url_dup(handle_.get()));
  if (copy == nullptr) return {};
  for (const CURLUPart secret :
       {CURLUPART_USER, CURLUPART_PASSWORD, CURLUPART_OPTIONS, CURLUPART_FRAGMENT}) {
    if (curl_url_set(copy.get(), secret, nullptr, 0) != CURLUE_OK) return {};
  }
  return redactUrl(part(copy.get(), CURLUPART_URL));
}

bool CurlUrl::isNamedBy(std::string_view hostHeader) const noexcept {
  const std::string_view rest = hostHeader.substr(std::min(host_.size(), hostHeader.size()));
  return equalIgnoringCase(hostHeader.substr(0, host_.size()), host_) &&
         (rest.empty() || (rest.front() == ':' && rest.substr(1) == port_));
}

Result<CurlUrl> CurlUrl::finish(CurlUrlHandle handle) {
  CurlUrl url(std::move(handle));
  // A redirect to "file:" would hand a local file to the caller as the server's response.
  if (url.scheme_ != "http" && url.scheme_ != "https") {
    return invalidUrl(fmt::format("only http and https are spoken, not {}", url.scheme_));
  }
  if (url.host_.empty()) return invalidUrl("it names no host");
  return url;
}

Result<CurlUrl> CurlUrl::parse(const std::string& url) {
  CurlUrlHandle handle(curl_url());
  if (handle == nullptr) return invalidUrl("out of memory");
  if (auto error = setUrl(handle.get(), url)) return error;
  return finish(std::move(handle));
}

Result<CurlUrl> CurlUrl::resolve(const std::string& location) const {
  CurlUrlHandle handle(curl_url_dup(handle_.get()));
  if (handle == nullptr) return invalidUrl("out of memory");
  if (auto error = setUrl(handle.get(), location)) return error;
  return finish(std::move(handle));
}

}  // namespace varo::platform
