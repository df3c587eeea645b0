#pragma once

#include "Sandbox/Faults/Fault.h"
#include "Sandbox/Http/HttpRequest.h"
#include "Sandbox/Http/HttpResponse.h"

#include <optional>

namespace varo::sandbox {

/// The request as the service is to see it: with the range moved, shortened or taken away. Nothing
/// when the action does none of that, or the request has no range of the form "first-last".
[[nodiscard]] std::optional<HttpRequest> bentRequest(const HttpRequest& request,
                                                     const FaultAction& action);

/// Puts the action's total into "Content-Range", if the response has one.
void bendTotal(HttpResponse& response, const FaultAction& action);

}  // namespace varo::sandbox
