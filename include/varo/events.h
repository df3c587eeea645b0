#pragma once

#include "varo/export.h"
#include "varo/failure.h"
#include "varo/units.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace varo {

/// What an operation does, by the function that began it.
enum class OperationKind : std::uint8_t {
  kFileList,         ///< `FileClient::list`
  kFileUpload,       ///< `FileClient::upload`
  kFileDownload,     ///< `FileClient::download`
  kFileUpdate,       ///< `FileClient::update`
  kFileRemove,       ///< `FileClient::remove`
  kFileRemoveWhere,  ///< `FileClient::removeWhere`
  kBlobFetch,        ///< `BlobStore::fetch`, and each blob of `fetchAll`
  kObjectPut,        ///< `ObjectStore::put`
  kObjectGet,        ///< `ObjectStore::get`
  kObjectHead,       ///< `ObjectStore::head`
  kObjectList,       ///< `ObjectStore::list`
  kObjectRemove,     ///< `ObjectStore::remove`
};

/// "fileList" for `kFileList`, and so on. Lives as long as the process.
[[nodiscard]] VARO_API std::string_view nameOf(OperationKind kind) noexcept;

/// One request that has ended: each time that it goes to the server is one, a repeated one too.
/// Never holds a header, a token or a signature.
struct RequestEvent {
  /// `OperationEvent::id` of the operation that sent it.
  std::uint64_t operation = 0;
  OperationKind kind = OperationKind::kFileList;
  /// "GET", "PUT", ...
  std::string method = {};
  /// Without user, password and fragment, and of its query the names alone.
  std::string url = {};
  /// 1, and one more each time that the same request is sent again.
  int attempt = 1;
  /// Of the response; none where there was none.
  std::optional<int> status = {};
  /// Why there was no response, or what a status from 400 on says; none for all others.
  std::optional<Kind> error = {};
  /// Bodies, as they went over the line.
  Bytes sent = {};
  Bytes received = {};
  /// By this computer's clock.
  std::chrono::system_clock::time_point begun = {};
  /// How long it waited for one of the connections.
  std::optional<std::chrono::microseconds> queue = {};
  /// How long it took to connect, name look-up and TLS included; none where a kept connection
  /// served.
  std::optional<std::chrono::microseconds> connect = {};
  /// From `begun` to the first byte of the response.
  std::optional<std::chrono::microseconds> firstByte = {};
  /// From `begun` to the end.
  std::chrono::microseconds total = {};
};

/// One operation that has ended.
struct OperationEvent {
  /// Unique in the process; never 0.
  std::uint64_t id = 0;
  OperationKind kind = OperationKind::kFileList;
  /// None for a success.
  std::optional<Kind> failure = {};
  /// Requests that it sent: as many as there were events of them.
  std::uint64_t attempts = 0;
  /// `Progress::done` at its end.
  Bytes done = {};
  /// Sums over its requests: more than `done` where bytes were sent again.
  Bytes sent = {};
  Bytes received = {};
  /// When it was asked for, by this computer's clock.
  std::chrono::system_clock::time_point begun = {};
  /// Until its end, waits and pauses included.
  std::chrono::microseconds duration = {};
};

}  // namespace varo
