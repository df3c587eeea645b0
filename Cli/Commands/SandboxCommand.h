#pragma once

#include <cstdint>
#include <string>

namespace varo::cli {

class Session;

struct SandboxCommandOptions {
  /// 0: any free one.
  std::uint16_t port = 0;
  std::uint16_t storePort = 0;
  /// Where records and bytes are kept; empty: a temporary directory that goes with the sandbox.
  std::string dataDirectory;
  std::string address = "127.0.0.1";
  /// Where to make an example database with records whose blobs the sandbox has; empty: none.
  std::string exampleDatabase;
  /// The token that requests must carry; empty: none.
  std::string requiredToken;
  /// An S3-compatible store that templates point at; empty: the sandbox's own.
  std::string objectStore;
  /// The store's keys and region; empty: the sandbox's own ones.
  std::string accessKey;
  std::string secretKey;
  std::string region;
  /// Whether the sandbox's own store takes requests without a signature, too.
  bool allowsUnsigned = false;
};

/// Runs a sandbox until the user interrupts it. Returns the exit status.
[[nodiscard]] int run(Session& session, const SandboxCommandOptions& options);

}  // namespace varo::cli
