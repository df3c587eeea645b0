#pragma once

#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>
#include <string>

namespace varo::cli {

class CommandArguments;

/// The binary column of a record of an offline database: what a blob command is about.
struct BlobRecord {
  /// A name below the library's directory of databases.
  std::string database;
  std::string table;
  std::string column;
  /// Columns and values (text) that name the record.
  platform::Dictionary keys;

  /// "photo of employees id=3", printable.
  [[nodiscard]] std::string name() const;
  /// The keys alone.
  [[nodiscard]] std::string pairs() const;

  // What the database says now.

  /// The blob id that the record is linked to; missing where there is none.
  [[nodiscard]] platform::Value blobId() const;
  /// The state of that blob.
  [[nodiscard]] std::optional<std::int64_t> state() const;
};

/// Declares the arguments that name a record.
void declareBlobRecord(CommandArguments& arguments, BlobRecord& record);

}  // namespace varo::cli
