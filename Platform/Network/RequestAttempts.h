#pragma once

#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Random.h"
#include "Platform/Foundation/Sleeper.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/RequestSettings.h"

#include <memory>

namespace varo::platform {

/// What attempts wait by, so that tests can. All of it lives as long as the process.
struct AttemptTools {
  const Clock& clock = Clock::system();
  Sleeper& sleeper = Sleeper::shared();
  Random& random = Random::system();
};

/// Sends a request with `settings`, again where those say so, and calls `completion` once with what
/// the last attempt came to.
///
/// - Each attempt goes to `transport`, through `sendGuarded`, with the time-outs, the rate limit
/// and
///   the `onSent` of the settings where the request has none of its own.
/// - One that is refused is repeated at once, and once, where the authorizer has something else to
///   show.
/// - One that has failed is repeated after a wait, where the policy allows it, the budget has that
///   much left, and a repeat does no harm: see `isWorthRepeating`. Of a request with a receiver
///   that has begun to receive, none is: whoever has the bytes knows where to go on.
/// - A wait holds no thread. The cancellation of the settings, and `cancel` of what is returned,
///   end it at once, with `HttpTransportError::kCancelled`; the shutdown with `kShutDown`. So does
///   `RequestSettings::noMoreAttempts`, which leaves an attempt alone.
///
/// Returns what cancels it; never null. Throws only `std::bad_alloc`, and then nothing was sent and
/// the completion is not called. Thread-safe.
std::shared_ptr<HttpTransfer> sendAttempts(const std::shared_ptr<HttpTransport>& transport,
                                           HttpRequest request,
                                           std::shared_ptr<const RequestSettings> settings,
                                           HttpCompletion completion,
                                           const AttemptTools& tools = {});

}  // namespace varo::platform
