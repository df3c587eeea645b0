#pragma once

#include "Platform/Foundation/Error.h"

#include <optional>
#include <string_view>

namespace varo::platform {

/// Why a request got no response, in words that hold for every HTTP library. docs/errors.md says of
/// each whether a retry is worth it.
enum class TransportFailure {
  kNameNotFound,
  kNoConnection,
  kTimedOut,
  /// The proxy was not found or not reached, or broke off.
  kProxyNotReached,
  /// The proxy wants other credentials, or does not serve such requests.
  kProxyRefused,
  /// No secure connection, other than for the four below.
  kTls,
  kCertificateNotTrusted,
  /// The file or directory of trusted certificates cannot be used.
  kTrustFileUnusable,
  /// The server's public key is none of the pinned ones.
  kPinMismatch,
  /// The client certificate or its key cannot be used.
  kClientCertificateUnusable,
  /// The server closed the connection before it responded.
  kNoAnswer,
  /// The connection broke while the request was sent.
  kSendingBroken,
  /// The connection broke within the response.
  kCutShort,
  /// A response that is not HTTP, or has headers beyond all measure.
  kBadAnswer,
  /// A response of more bytes than the request allows.
  kTooLarge,
  kRedirectRefused,
  kTooManyRedirects,
  kInvalidUrl,
  kInvalidHeader,
  kInvalidBody,
  /// The transport's configuration contradicts itself.
  kInvalidConfiguration,
  kRequestBodyUnreadable,
  kResponseBodyNotStored,
  kCancelled,
  kShutDown,
  /// No memory, thread or handle.
  kNoResources,
  kOther,
};

/// Key of the user information under which an error of a transport has the name of its
/// `TransportFailure`, a text. It stays there through every wrapping that keeps the user
/// information; `firstCause` leads to it through the others. A transport of an application's own
/// sets it with `nameOf`; without it the failure counts as unknown.
inline constexpr std::string_view kTransportFailureKey = "transportFailure";

/// "nameNotFound" for `kNameNotFound`, and so on.
[[nodiscard]] std::string_view nameOf(TransportFailure failure) noexcept;

/// What the user information of `error` says under `kTransportFailureKey`; none where it says
/// nothing that is known.
[[nodiscard]] std::optional<TransportFailure> transportFailureIn(const Dictionary& userInfo);
[[nodiscard]] std::optional<TransportFailure> transportFailureOf(const Error& error);

}  // namespace varo::platform
