#pragma once

#include "varo/export.h"
#include "varo/names.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo {

/// What kind of failure it was: what a program decides by.
enum class Kind : std::uint8_t {
  kCancelled,        ///< given up: `cancel`, a stop token, or the end of the handle
  kInvalidArgument,  ///< a mistake of the caller; the message names the argument
  kNoConnection,     ///< the server was not found, not reached, or the connection broke
  kTimeout,          ///< no connection, or no byte, for too long
  kTls,              ///< no secure connection, or a certificate that is not trusted
  kUnauthorized,     ///< the service wants (other) credentials: 401, 403; or the proxy does: 407
  kNotFound,         ///< no such file, blob, object or address: 404, 410
  kConflict,         ///< what is there forbids it: 409, 412, a transfer of the same file that runs
  kThrottled,        ///< too many requests: 429; `retryAfter` may say how long to wait
  kServer,           ///< the server failed: 5xx, or it refused in a way of its own
  kNotOurService,    ///< an answer that the service does not give: a web page, another API
  kIntegrity,        ///< the bytes are not those that were asked for, or not all of them
  kLocalFile,        ///< a file cannot be read, made or written
  kDiskFull,         ///< no space, or a quota is used up
  kDatabase,         ///< the offline database cannot be read or written
  kShutDown,         ///< the library was shut down
  kOther,            ///< none of these; see `cause`
};

/// "cancelled" for `kCancelled`, "notOurService" for `kNotOurService`, and so on.
[[nodiscard]] VARO_API std::string_view nameOf(Kind kind) noexcept;

/// What was below a failure: an error as the layer below has it. docs/errors.md lists domains and
/// codes.
struct Cause {
  std::string domain;
  std::int64_t code = 0;
  std::string text;
};

/// Why an operation did not succeed. A plain value.
struct Failure {
  Kind kind = Kind::kOther;
  /// One sentence that names the file, key or address. Never holds a token or a signature.
  std::string message;
  /// Of the answer, where there was one.
  std::optional<int> httpStatus = {};
  /// The service's own status of the operation ("opstatus"), where it gave one.
  std::optional<std::int64_t> serviceStatus = {};
  /// How long the server wants to be left alone.
  std::optional<std::chrono::milliseconds> retryAfter = {};
  /// The beginning of the answer's body; empty where there was none. At most 1 KiB.
  std::string responseExcerpt = {};
  /// As the server named the request; empty where it did not.
  std::string requestId = {};
  /// The record that a failed upload has made: to resume it, or to remove it.
  std::optional<FileId> begun = {};
  /// The upload in parts that a failed `ObjectStore::put` has left behind, to be resumed.
  std::optional<UploadId> upload = {};
  /// Where that upload can go on: for `UploadOptions::resume`.
  std::optional<UploadPlace> place = {};
  Cause cause = {};

  /// Whether the same call may succeed later, and repeating it does no harm. False for what the
  /// caller has to change first, and for what may have been carried out.
  [[nodiscard]] VARO_API bool isWorthRetrying() const noexcept;

  /// Set by the library: the request may have been carried out although no answer came.
  bool maybeDone = false;
};

}  // namespace varo
