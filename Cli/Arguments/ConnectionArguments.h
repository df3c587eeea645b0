#pragma once

#include "Platform/Foundation/Result.h"
#include "Platform/Network/NetworkConfiguration.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varo::cli {

class CommandArguments;

/// How servers are reached: what every command that goes to a network takes.
struct Connection {
  /// None: the library's defaults; so of the next one.
  std::optional<std::chrono::milliseconds> connectTimeout;
  std::optional<std::chrono::milliseconds> stallTimeout;
  /// How often a request that has failed is sent again; none: as the policy has it.
  std::optional<int> retries;
  /// All waits for retries together, and the longest one that a server may ask for.
  std::optional<std::chrono::milliseconds> retryMaxTime;
  /// Bytes in a second; none: as many as the line takes.
  std::optional<std::int64_t> limitRate;
  /// With user and password apart from its address.
  std::optional<platform::ProxyConfiguration> proxy;
  /// Of a file; empty: the one in `proxy`, or of the environment.
  std::string proxyPassword;
  bool proxyFromEnvironment = false;
  /// PEM file of certificates to trust; empty: the system's only.
  std::string caFile;
  /// PEM files; empty for none.
  std::string certificate;
  std::string key;
  std::string keyPassword;
  /// Each as "sha256//" and Base64.
  std::vector<std::string> pinnedKeys;
  /// Empty: the library's own.
  std::string userAgent;
};

/// The proxy at "[scheme://][user[:password]@]host[:port]", percent-encoded where needed; without a
/// scheme it is http. Errors are those of `usageError`, and quote nothing, as the text may hold a
/// password.
[[nodiscard]] platform::Result<platform::ProxyConfiguration> parseProxy(const std::string& text);
/// A digest in Base64, with or without "sha256//" before it.
[[nodiscard]] std::string pinFrom(const std::string& text);

/// Declares the options of a connection, which are global ones.
void declareConnection(CommandArguments& arguments, Connection& connection);

/// Takes from the environment the passwords that no option gives, and refuses what is wrong. To be
/// called when the options have their values.
void completeConnection(Connection& connection);

/// The same for the transport of the process.
[[nodiscard]] platform::NetworkConfiguration networkConfiguration(const Connection& connection);

}  // namespace varo::cli
