#include "Platform/Network/CurlShares.h"

#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HeaderRules.h"
#include "Platform/Network/NetworkTuning.h"

#include <algorithm>
#include <utility>

namespace varo::platform {
namespace {

CurlShares::Ptr makeShare(bool cookies) {
  CurlShare share(curl_share_init());
  if (share == nullptr) return nullptr;
  const auto add = [&share](curl_lock_data what) {
    return curl_share_setopt(share.get(), CURLSHOPT_SHARE, what) == CURLSHE_OK;
  };
  if (!add(CURL_LOCK_DATA_SSL_SESSION)) return nullptr;
  if (cookies && !add(CURL_LOCK_DATA_COOKIE)) return nullptr;
  return share;
}

/// A digest in hexadecimal digits; empty where there are no credentials.
Result<std::string> digestOfCredentials(const std::vector<HttpHeader>& headers) {
  std::string credentials;
  for (const HttpHeader& header : headers) {
    if (!isCredentialHeader(header.name)) continue;
    credentials += lowerCase(header.name) + ':' + header.value + '\n';
  }
  // OpenSSL looks for its algorithms with the first digest: a tenth of what a short program does.
  if (credentials.empty()) return credentials;
  const auto digest = Sha256::of(credentials);
  if (!digest) return digest.error();
  return digest->hex();
}

}  // namespace

CurlShares::Ptr CurlShares::withCookies(const std::vector<HttpHeader>& headers) {
  auto digest = digestOfCredentials(headers);
  if (!digest) return nullptr;
  std::string credentials = std::move(digest).value();
  const auto found = std::find_if(kept_.begin(), kept_.end(), [&](const Kept& kept) {
    return kept.credentials == credentials;
  });
  if (found != kept_.end()) {
    std::rotate(kept_.begin(), found, found + 1);
    return kept_.front().share;
  }
  Ptr share = makeShare(true);
  if (share == nullptr) return nullptr;
  if (kept_.size() == tuning::kMaxCookieJars) kept_.pop_back();
  kept_.insert(kept_.begin(), {std::move(credentials), share});
  return share;
}

CurlShares::Ptr CurlShares::withoutCookies() {
  if (withoutCookies_ == nullptr) withoutCookies_ = makeShare(false);
  return withoutCookies_;
}

}  // namespace varo::platform
