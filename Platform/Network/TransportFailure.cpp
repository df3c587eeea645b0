#include "Platform/Network/TransportFailure.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace varo::platform {
namespace {

using enum TransportFailure;

constexpr std::pair<TransportFailure, std::string_view> kNames[] = {
    {kNameNotFound, "nameNotFound"},
    {kNoConnection, "noConnection"},
    {kTimedOut, "timedOut"},
    {kProxyNotReached, "proxyNotReached"},
    {kProxyRefused, "proxyRefused"},
    {kTls, "tls"},
    {kCertificateNotTrusted, "certificateNotTrusted"},
    {kTrustFileUnusable, "trustFileUnusable"},
    {kPinMismatch, "pinMismatch"},
    {kClientCertificateUnusable, "clientCertificateUnusable"},
    {kNoAnswer, "noAnswer"},
    {kSendingBroken, "sendingBroken"},
    {kCutShort, "cutShort"},
    {kBadAnswer, "badAnswer"},
    {kTooLarge, "tooLarge"},
    {kRedirectRefused, "redirectRefused"},
    {kTooManyRedirects, "tooManyRedirects"},
    {kInvalidUrl, "invalidUrl"},
    {kInvalidHeader, "invalidHeader"},
    {kInvalidBody, "invalidBody"},
    {kInvalidConfiguration, "invalidConfiguration"},
    {kRequestBodyUnreadable, "requestBodyUnreadable"},
    {kResponseBodyNotStored, "responseBodyNotStored"},
    {kCancelled, "cancelled"},
    {kShutDown, "shutDown"},
    {kNoResources, "noResources"},
    {kOther, "other"},
};

}  // namespace

std::string_view nameOf(TransportFailure failure) noexcept {
  const auto* const entry = std::find_if(std::begin(kNames), std::end(kNames),
                                         [&](const auto& known) { return known.first == failure; });
  return entry == std::end(kNames) ? std::string_view("other") : entry->second;
}

std::optional<TransportFailure> transportFailureIn(const Dictionary& userInfo) {
  const std::string* name = userInfo[kTransportFailureKey].text();
  if (name == nullptr) return std::nullopt;
  const auto* const entry = std::find_if(std::begin(kNames), std::end(kNames),
                                         [&](const auto& known) { return known.second == *name; });
  return entry == std::end(kNames) ? std::nullopt : std::optional(entry->first);
}

std::optional<TransportFailure> transportFailureOf(const Error& error) {
  return transportFailureIn(error.userInfo());
}

}  // namespace varo::platform
