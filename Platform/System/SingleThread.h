#pragma once

namespace varo::platform::system {

/// libstdc++ does not say that a `std::stop_callback` has run where the process had one thread at
/// that time, and a thread that is started later and removes the callback waits for that for ever.
/// After this call the process counts as one with several threads. Call it before a stop is
/// requested.
void leaveSingleThread() noexcept;

}  // namespace varo::platform::system
