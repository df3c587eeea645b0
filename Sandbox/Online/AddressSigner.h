#pragma once

#include "Sandbox/Online/SignatureV4.h"
#include "Sandbox/Online/SignedStoreOptions.h"

#include <string>
#include <string_view>

namespace varo::sandbox {

/// "host:port" of a URL of scheme, host and port.
[[nodiscard]] std::string_view authorityOf(std::string_view url);

/// The path of an object with its query, signed under the store's keys at `now`, so that who has it
/// needs no keys. Good for an hour and for `method` only. `authority` is the store's.
[[nodiscard]] std::string signedPath(const SignedStoreOptions& keys, std::string_view method,
                                     std::string_view authority, std::string_view key,
                                     sigv4::Time now);

}  // namespace varo::sandbox
