#pragma once

#include "Sandbox/Blobs/BlobObject.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// A record of the example: an employee with a photo that is still on the service.
struct ExampleEmployee {
  std::int64_t id = 0;
  std::string_view name;
  GeneratedContent photo;
  BlobObject::Mode mode = BlobObject::Mode::kKnownTotal;
};

/// An application's offline database with the records of one table, whose photos the blob service
/// has: table `kTable` with the columns "id", "name" and "blobref_photo", and the table of blobs.
struct ExampleDatabase {
  static constexpr const char* kScope = "HR";
  static constexpr const char* kTable = "employees";  ///< Also the object's name on the service.
  static constexpr const char* kKeyColumn = "id";
  static constexpr const char* kPhotoColumn = "photo";
  static constexpr const char* kBlobTable = "varosyncBLOBSTOREMANAGER";

  /// One for each way in which the service responds.
  [[nodiscard]] static std::span<const ExampleEmployee> employees();
  [[nodiscard]] static BlobKey keyOf(const ExampleEmployee& employee);

  /// Makes the SQLite file at `path`, with the directories above it. One that was made before stays
  /// as it is, so that downloads go on. Returns what went wrong: the path cannot be used, or
  /// another database is there, which is left alone.
  [[nodiscard]] static std::optional<std::string> make(const std::string& path);
};

}  // namespace varo::sandbox
