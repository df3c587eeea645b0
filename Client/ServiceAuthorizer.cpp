#include "Client/ServiceAuthorizer.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Client/Failures.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>

namespace varo::detail {

using platform::HttpHeader;
using platform::HttpRequest;
using platform::HttpResponse;

namespace {

/// Of a refusal that is searched for what it says.
constexpr std::uint64_t kLongestRefusal = std::uint64_t{64} << 10U;
constexpr int kUnauthorized = 401;
constexpr int kForbidden = 403;

bool isToken(const HttpHeader& header) {
  return platform::equalIgnoringCase(header.name, binary::kVaroAuthorization);
}

bool names(std::string_view text, std::initializer_list<std::string_view> words) {
  const std::string lower = platform::lowerCase(text);
  return std::all_of(words.begin(), words.end(), [&lower](std::string_view word) {
    return lower.find(word) != std::string::npos;
  });
}

/// Whether a 403 is about the token's age, and not about what its owner may do: as RFC 6750
/// (section 3.1) has it, or in words.
bool saysExpired(const HttpResponse& response) {
  const bool inHeader =
      std::any_of(response.headers.begin(), response.headers.end(), [](const HttpHeader& header) {
        return platform::equalIgnoringCase(header.name, "WWW-Authenticate") &&
               (names(header.value, {"invalid_token"}) || names(header.value, {"expired"}));
      });
  if (inHeader || !response.body) return inHeader;
  const auto text = response.body->readAll(kLongestRefusal);
  return text && names(*text, {"token", "expired"});
}

}  // namespace

platform::Result<void> ServiceAuthorizer::authorize(HttpRequest& request) {
  const auto header = std::find_if(request.headers.begin(), request.headers.end(), isToken);
  if (header == request.headers.end()) return {};
  const auto shown = held_->current();
  if (!shown) return errorOf(shown.error());
  // Else it is a header of the application's own.
  if (!(*shown)->token.empty()) header->value = (*shown)->token;
  return {};
}

bool ServiceAuthorizer::renew(const std::vector<HttpHeader>& shown, const HttpResponse& response) {
  const auto header = std::find_if(shown.begin(), shown.end(), isToken);
  if (header == shown.end()) return false;
  const bool isRefused =
      response.status == kUnauthorized || (response.status == kForbidden && saysExpired(response));
  return isRefused && held_->renew([&refused = header->value](const Credentials& one) {
    return one.token.empty() || one.token == refused;
  });
}

}  // namespace varo::detail
