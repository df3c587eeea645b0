#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Network/HttpTransport.h"

#include <string_view>
#include <vector>

namespace varo::platform {

/// Success, or an `HttpTransportError::kInvalidHeader` that names the header but not its value.
///
/// A name is a token of RFC 9110; a value has no control characters except tabs. Bytes over 127 are
/// let through.
[[nodiscard]] Result<void> checkHeader(std::string_view name, std::string_view value);
[[nodiscard]] Result<void> checkHeaders(const std::vector<HttpHeader>& headers);

/// Whether the transport itself says this of a request (Content-Length, Transfer-Encoding, Expect),
/// so that a caller's header of that name is dropped. Any letter case.
[[nodiscard]] bool isSetByTransport(std::string_view headerName) noexcept;

[[nodiscard]] bool isHostHeader(std::string_view headerName) noexcept;

/// Whether the header belongs to a signature, which each request has one of its own of. Any letter
/// case.
[[nodiscard]] bool isSignatureHeader(std::string_view headerName) noexcept;

/// Whether the header is a credential or part of a signature, so that it must not follow a redirect
/// to another origin. Any letter case.
[[nodiscard]] bool isCredentialHeader(std::string_view headerName) noexcept;

}  // namespace varo::platform
