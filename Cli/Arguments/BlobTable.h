#pragma once

#include "Cli/Arguments/BlobRecord.h"
#include "Platform/Foundation/Result.h"
#include "varo/blobs.h"

#include <string>
#include <vector>

namespace varo::cli {

class CommandArguments;

/// A binary column of a table of an offline database: what a blob command on all records is about.
struct BlobTable {
  /// A name below the library's directory of databases.
  std::string database;
  std::string table;
  std::string column;

  /// "photo of employees", printable.
  [[nodiscard]] std::string name() const;
  /// The same without a record's keys, for what describes failures.
  [[nodiscard]] BlobRecord asRecord() const { return {database, table, column, {}}; }

  // What the database says now. Errors: those of `SQLiteUtil::queryRows`.

  /// The column with the table's primary key, or the row id where it has none.
  [[nodiscard]] platform::Result<BlobColumn> blobColumn() const;
  /// Of all records.
  [[nodiscard]] platform::Result<std::vector<BlobState>> states() const;
};

/// Declares the arguments that name a column.
void declareBlobTable(CommandArguments& arguments, BlobTable& table);

/// "id=3 place=Oslo", printable.
[[nodiscard]] std::string pairsOf(const BlobRef& blob);
/// The keys as JSON has them.
[[nodiscard]] platform::Dictionary keysOf(const BlobRef& blob);

}  // namespace varo::cli
