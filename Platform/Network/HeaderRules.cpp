#include "Platform/Network/HeaderRules.h"

#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

namespace varo::platform {
namespace {

constexpr bool isTokenCharacter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

constexpr bool isForbiddenInValue(char c) noexcept {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < 0x20 && c != '\t') || byte == 0x7F;
}

}  // namespace

Result<void> checkHeader(std::string_view name, std::string_view value) {
  if (name.empty() || !std::all_of(name.begin(), name.end(), isTokenCharacter)) {
    return makeTransportError(
        HttpTransportError::kInvalidHeader,
        fmt::format("A header name is empty or has characters that are not allowed: {}",
                    Value(Data::fromBytes(std::string(name))).description()));
  }
  if (std::any_of(value.begin(), value.end(), isForbiddenInValue)) {
    return makeTransportError(
        HttpTransportError::kInvalidHeader,
        fmt::format("The value of the header {} has control characters.", name));
  }
  return {};
}

Result<void> checkHeaders(const std::vector<HttpHeader>& headers) {
  for (const HttpHeader& header : headers) {
    if (auto valid = checkHeader(header.name, header.value); !valid) return valid;
  }
  return {};
}

bool isSetByTransport(std::string_view headerName) noexcept {
  // A length of the caller's that differs from the body's would let the rest of one request be read
  // as the beginning of the next.
  constexpr std::array<std::string_view, 3> kOwn = {"content-length", "transfer-encoding",
                                                    "expect"};
  return std::any_of(kOwn.begin(), kOwn.end(), [headerName](std::string_view own) {
    return equalIgnoringCase(headerName, own);
  });
}

bool isHostHeader(std::string_view headerName) noexcept {
  return equalIgnoringCase(headerName, "host");
}

bool isSignatureHeader(std::string_view headerName) noexcept {
  constexpr std::string_view kPrefix = "x-amz-";
  return equalIgnoringCase(headerName.substr(0, kPrefix.size()), kPrefix);
}

bool isCredentialHeader(std::string_view headerName) noexcept {
  // Of a signature's headers, the session token is a secret, and the others are of no use to
  // another host.
  return isSecretKey(headerName) || isSignatureHeader(headerName);
}

}  // namespace varo::platform
