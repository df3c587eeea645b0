#pragma once

#include "Platform/Foundation/Value.h"
#include "varo/names.h"
#include "varo/outcome.h"

#include <cstdint>
#include <optional>

namespace varo::detail {

/// How far an upload has come: what an `UploadPlace` says.
struct UploadPoint {
  /// The service's response to the creation of the record; empty before that.
  platform::Dictionary creation;
  /// Bytes: of all of it, of a chunk, and of those that the service has.
  std::uint64_t size = 0;
  std::uint64_t chunk = 0;
  std::uint64_t sent = 0;
  /// Of a file: when it was changed last, in ticks of the file system's clock.
  std::optional<std::int64_t> modified;

  /// None before the service has named a record.
  [[nodiscard]] std::optional<FileId> record() const;
  [[nodiscard]] UploadPlace place() const;
  /// `Kind::kInvalidArgument` for a text that is no place.
  [[nodiscard]] static Outcome<UploadPoint> from(const UploadPlace& place);

  /// Of the first byte to send. The last chunk is sent again where the service has all of them: the
  /// commit needs what the response to it says. None where the upload cannot go on: an outside
  /// store appends what it gets, and it may have more than is known.
  [[nodiscard]] std::optional<std::uint64_t> next() const;
};

}  // namespace varo::detail
