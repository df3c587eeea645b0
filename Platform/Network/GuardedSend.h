#pragma once

#include "Platform/Network/HttpTransport.h"

#include <memory>
#include <stop_token>

namespace varo::platform {

/// Sends a request and sees to it that `completion` is called exactly once, with a response or an
/// error but not both, whatever the transport does: one may be an application's own.
///
/// - What `send` throws, a completion with neither response nor error, and a completion that is
///   destroyed without having been called are `HttpTransportError::kNoAnswer`. Where a transport
///   says both, the error counts.
/// - All calls of the completion but the first are ignored.
/// - The body of a 2xx that came with the response, since the transport knows no receivers, goes to
///   the request's receiver before the completion is called.
/// - Once a stop is requested of `cancellation`, the transfer is cancelled; after that nothing is
///   sent. Where the transport offers nothing to cancel, or its `cancel` throws, the request ends
///   with `HttpTransportError::kCancelled` and a later response is ignored.
///
/// The completion is called on the thread on which the transport calls it; on the runtime's pool
/// where the transport calls it from inside `send` or not at all.
///
/// Returns what cancels the transfer; never null. It keeps nothing of the request alive. Throws
/// only `std::bad_alloc`, and then nothing was sent and the completion is not called. Thread-safe.
[[nodiscard]] std::shared_ptr<HttpTransfer> sendGuarded(HttpTransport& transport,
                                                        HttpRequest request,
                                                        const std::stop_token& cancellation,
                                                        HttpCompletion completion);

}  // namespace varo::platform
