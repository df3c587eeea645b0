#pragma once

namespace varo::platform {

/// Sets OpenSSL up for this process without its exit handler, which would free the library's state
/// under threads that may still use it. To be called before anything else of OpenSSL is; without
/// effect where the host has initialised OpenSSL itself. Thread-safe, cheap to repeat.
void initializeOpenSsl() noexcept;

}  // namespace varo::platform
