#pragma once

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <string>

namespace varo::platform {

/// A request without a body.
[[nodiscard]] HttpRequest encodeRequest(HttpMethod method, const std::string& url,
                                        const Dictionary& queryParams, const Dictionary& headers);

/// Gives `request` the body that `type` makes of `body`, and its Content-Type.
///
/// Errors: `HttpTransportError::kInvalidBody` for what the type cannot encode, an unknown type
/// included; those of the JSON serialiser and of `encodeMultipart`.
[[nodiscard]] Result<void> encodeBody(HttpRequest& request, RequestType type, const Value& body);

}  // namespace varo::platform
