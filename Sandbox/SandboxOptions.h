#pragma once

#include "Sandbox/Files/DeleteKind.h"
#include "Sandbox/Files/TemplateKind.h"
#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Online/SignedStoreOptions.h"

#include <cstdint>
#include <string>

namespace varo::sandbox {

/// Settings of a sandbox. All but the directory have defaults that suit tests.
struct SandboxOptions {
  /// Where records and bytes are kept; made if missing. What it holds is served again.
  std::string dataDirectory{};
  /// Listening on another address lets other machines in; the control endpoint still responds to
  /// loopback clients only.
  std::string address = "127.0.0.1";
  std::uint16_t port = 0;       ///< 0: any free one.
  std::uint16_t storePort = 0;  ///< Of the outside object store; 0: any free one.
  /// What "X-Pelmar-Authorization" must say; empty: nobody asks.
  std::string requiredToken{};
  /// Of each of the two listeners.
  HttpLimits http{};
  /// Of uploads that ask for nothing special.
  TemplateKind defaultTemplate{};
  /// Of files that ask for nothing special.
  DeleteKind defaultDelete{};
  /// Of online transfers.
  SignedStoreOptions objectStore{};
};

}  // namespace varo::sandbox
