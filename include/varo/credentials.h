#pragma once

#include "varo/export.h"
#include "varo/options.h"
#include "varo/outcome.h"

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace varo {

/// Functions for `Options::credentials`. They are thread-safe, and hold no secret between two
/// calls.
///
/// A file and the output of a command are the token, alone on one line, or a JSON object of texts,
/// of which it may leave out what there is none of; other entries are skipped:
///
///     {"token": "...", "accessKey": "...", "secretKey": "...", "sessionToken": "...",
///      "expires": "2026-01-31T12:00:00Z"}
///
/// "expires" is a time as RFC 3339 has it; see `Credentials::expires`. At most 64 KiB.
///
/// What goes wrong is a `Kind::kUnauthorized`, which names the file, variable or command, and
/// nothing of what they hold.
using CredentialsProvider = std::function<Outcome<Credentials>()>;

/// Whose files of credentials are read.
enum class ReadableBy : std::uint8_t {
  kOwnerAndGroup,  ///< those that all users can read or change are refused
  kAnybody,        ///< all: in a container, files of secrets are often open to all of its users
};

/// Reads a file, each time anew: one that has been replaced serves from the next call on. Replace
/// it by a rename, so that nobody reads half of it.
[[nodiscard]] VARO_API CredentialsProvider
credentialsFromFile(std::filesystem::path file, ReadableBy readable = ReadableBy::kOwnerAndGroup);

/// Names of variables of the environment. Those that are missing or empty give nothing.
struct CredentialsVariables {
  std::string token = "VARO_TOKEN";
  std::string accessKey = "VARO_ACCESS_KEY";
  std::string secretKey = "VARO_SECRET_KEY";
  std::string sessionToken = "VARO_SESSION_TOKEN";
  /// RFC 3339.
  std::string expires = "VARO_CREDENTIALS_EXPIRE";
};

/// Reads the environment, each time anew. It must not be changed at the same time.
[[nodiscard]] VARO_API CredentialsProvider
credentialsFromEnvironment(CredentialsVariables names = {});

/// Runs a command, and reads its standard output.
///
/// - `command` is its program, looked for in PATH where it has no slash, and its arguments; there
/// is
///   no shell. Arguments can be seen by all users of the computer: give it no secret.
/// - It gets the environment and the standard error of this process, no input, no other open file,
///   and a process group of its own.
/// - It has to end with status 0 within `timeout`, else it and what it has started are killed.
[[nodiscard]] VARO_API CredentialsProvider credentialsFromCommand(
    std::vector<std::string> command, std::chrono::milliseconds timeout = std::chrono::seconds(30));

}  // namespace varo
