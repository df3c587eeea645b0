#include "Platform/Database/StatementValues.h"

#include "Platform/Database/StatementGroup.h"
#include "Platform/Database/VRODatabaseAPI.h"

#include <sqlite3.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <utility>

namespace varo::platform {
namespace {

int bindValue(sqlite3_stmt* statement, int index, const Value& value, std::int64_t insertedRow) {
  if (const bool* flag = value.boolean()) return sqlite3_bind_int(statement, index, *flag ? 1 : 0);
  if (const std::int64_t* number = value.integer()) {
    return sqlite3_bind_int64(statement, index, *number);
  }
  if (const double* number = value.real()) return sqlite3_bind_double(statement, index, *number);
  if (const std::string* text = value.text()) {
    // Not copied: the values stay with the statement until it has run.
    return sqlite3_bind_text64(statement, index, text->data(), text->size(), SQLITE_STATIC,
                               SQLITE_UTF8);
  }
  if (const Data* data = value.data()) {
    if (data->empty()) return sqlite3_bind_zeroblob(statement, index, 0);  // no address were NULL
    const std::optional<std::string_view> bytes = data->memory();
    if (!bytes) return SQLITE_MISMATCH;
    return sqlite3_bind_blob64(statement, index, bytes->data(), bytes->size(), SQLITE_STATIC);
  }
  if (value.isMissing() || value.isNull()) return sqlite3_bind_null(statement, index);
  if (insertedRow > 0 && value.objectAs<InsertedRowId>() != nullptr) {
    const std::string text = std::to_string(insertedRow);
    return sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_TRANSIENT,
                               SQLITE_UTF8);
  }
  return SQLITE_MISMATCH;
}

std::optional<Value> readColumn(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_NULL:
      return Value(kSqlNullText);
    case SQLITE_INTEGER:
      return Value(std::int64_t{sqlite3_column_int64(statement, column)});
    case SQLITE_FLOAT:
      return Value(sqlite3_column_double(statement, column));
    case SQLITE_BLOB: {
      const void* bytes = sqlite3_column_blob(statement, column);
      const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
      if (bytes == nullptr) return size == 0 ? std::optional<Value>(Data()) : std::nullopt;
      return Value(Data::copyOf(std::span(static_cast<const std::byte*>(bytes), size)));
    }
    default: {
      const unsigned char* text = sqlite3_column_text(statement, column);
      if (text == nullptr) return std::nullopt;
      const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
      return Value(std::string(reinterpret_cast<const char*>(text), size));
    }
  }
}

}  // namespace

int bindValues(sqlite3_stmt* statement, const std::vector<Value>& values,
               std::int64_t insertedRow) {
  int index = 0;
  for (const Value& value : values) {
    const int code = bindValue(statement, ++index, value, insertedRow);
    if (code != SQLITE_OK) return code;
  }
  return SQLITE_OK;
}

std::optional<Dictionary> readRow(sqlite3_stmt* statement, DictionaryBuilder& rows) {
  // Counted anew for each row: the statement may have been prepared before a column was added.
  const int columns = sqlite3_column_count(statement);
  for (int column = 0; column < columns; ++column) {
    const char* name = sqlite3_column_name(statement, column);
    std::optional<Value> value = readColumn(statement, column);
    if (name == nullptr || !value) return std::nullopt;
    rows.key(name);
    rows.value(*std::move(value));
  }
  return rows.take();
}

}  // namespace varo::platform
