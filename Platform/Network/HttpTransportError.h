#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace varo::platform {

/// Domain of the default transport's errors.
///
/// What has failed stands under `kTransportFailureKey`, whatever the library: ask for that. Codes
/// below 1000 are libcurl's (`CURLcode`), those from 1001 are `HttpTransportError`'s. The user
/// information also has the readable text, and under "url" the address without user name, password
/// and secrets, where there is one.
inline constexpr std::string_view kHttpTransportErrorDomain = "HttpTransport";
/// Key of the user information: the address the error is about.
inline constexpr std::string_view kErrorUrlKey = "url";
/// Key of the user information: the `CURLcode`, where libcurl reported the failure.
inline constexpr std::string_view kErrorCurlCodeKey = "curlCode";
/// Key of the user information: the response's status, where it is the response that is refused.
inline constexpr std::string_view kErrorStatusKey = "httpStatusCode";
/// Key of the user information: the file or directory, where one is to blame.
inline constexpr std::string_view kErrorPathKey = "path";

/// Key of the user information: the errno of what failed at a file, where it is known.
inline constexpr std::string_view kErrorSystemCodeKey = "systemCode";

/// Key of the user information: true where no byte of the request has left; missing where some may
/// have.
inline constexpr std::string_view kErrorNotSentKey = "notSent";

/// Failures that the transport itself finds. A retry is worth it only where a line says so.
enum class HttpTransportError : std::int64_t {
  /// The URL is not an http(s) URL, or has characters that are never allowed.
  kInvalidUrl = 1001,
  /// A header name or value has characters that are never allowed.
  kInvalidHeader = 1002,
  /// The body's description cannot be encoded as the request type asks.
  kInvalidBody = 1003,
  /// A redirect that is never followed: of a request other than GET, to another kind of URL, to no
  /// URL at all, or from https to http.
  kRedirectRefused = 1004,
  kTooManyRedirects = 1005,
  /// The response's headers are larger than any real response's.
  kHeadersTooLarge = 1006,
  /// The request body could not be read, for example because its file shrank.
  kRequestBodyUnreadable = 1007,
  /// The response body could not be stored; retrying helps once there is room.
  kResponseBodyNotStored = 1008,
  kCancelled = 1009,
  kShutDown = 1010,
  /// The system refused a resource (memory, a thread, a handle); retrying may help.
  kNoResources = 1011,
  /// The response's body is longer than the request allows.
  kResponseTooLarge = 1012,
  /// The transport, an application's own, ended a request with neither a response nor an error,
  /// gave it up without a word, or threw.
  kNoAnswer = 1013,
  /// The transport's configuration contradicts itself, or a part of it cannot be read.
  kInvalidConfiguration = 1014,
  /// The proxy answered in place of the server that it does not let the request through.
  kProxyRefused = 1015,
};

/// An error of the domain above. `url` may be empty; it must be free of secrets. `details` are
/// further entries of the user information.
[[nodiscard]] ErrorPtr makeTransportError(HttpTransportError code, const std::string& description,
                                          const std::string& url = {}, Dictionary details = {});

/// The same about a file: the description says what `cause` says, the path is taken over.
[[nodiscard]] ErrorPtr makeTransportError(HttpTransportError code, std::string_view what,
                                          const Error& cause, const std::string& url);

}  // namespace varo::platform
