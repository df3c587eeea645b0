#include "Platform/Database/VROPreparedStatementBuilder.h"

#include "Platform/Database/DatabaseError.h"
#include "Platform/Database/DatabaseTuning.h"
#include "Platform/Database/StatementGroup.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <cmath>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>

namespace varo::platform {
namespace {

using Pairs = VROPreparedStatementBuilder::Pairs;

void append(Pairs& to, Pairs pairs) {
  if (to.empty()) {
    to = std::move(pairs);
  } else {
    to.insert(to.end(), std::move_iterator(pairs.begin()), std::move_iterator(pairs.end()));
  }
}

void appendQuoted(std::string& sql, std::string_view name) {
  sql += '"';
  // Doubled within quotes, so that no name can end them: names come from the application's data.
  for (std::size_t quote = name.find('"'); quote != std::string_view::npos;
       quote = name.find('"')) {
    sql.append(name.substr(0, quote)).append("\"\"");
    name.remove_prefix(quote + 1);
  }
  sql.append(name).append(1, '"');
}

ErrorPtr mistakeIn(const std::string& column) {
  if (!column.empty() && column.find('\0') == std::string::npos) return nullptr;
  return makeDatabaseError(DatabaseError::kInvalidColumnName,
                           "A column's name is empty or has a NUL in it");
}

/// The value as it will be bound: bytes of a file are read, what has no SQL form is an error.
Result<Value> bindable(const DictionaryEntry& entry) {
  const Value& value = entry.value;
  if (const Data* data = value.data()) {
    if (data->size() > tuning::kMaxBoundData) {
      return makeDatabaseError(DatabaseError::kInvalidValue,
                               fmt::format("The {} bytes of column {} are too many to be bound",
                                           data->size(), entry.key));
    }
    if (data->memory()) return value;
    // SQLite takes bytes from memory only; the limit above keeps that small.
    Result<std::string> bytes = data->readAll(tuning::kMaxBoundData);
    if (!bytes) return bytes.error();
    return Value(Data::fromBytes(std::move(bytes).value()));
  }
  // Its digits: SQLite's integers have 64 bits, and a double would change them.
  if (const std::string* digits = value.largeInteger()) return Value(*digits);
  const double* number = value.real();
  const bool isNumber = value.isInteger() || (number != nullptr && !std::isnan(*number));
  if (value.isMissing() || value.isNull() || value.isBool() || isNumber || value.isText() ||
      value.objectAs<InsertedRowId>() != nullptr) {
    return value;
  }
  return makeDatabaseError(DatabaseError::kInvalidValue,
                           fmt::format("The value of column {} cannot be bound", entry.key));
}

/// The text of a statement that grows together with the values of its parameters.
class StatementText {
 public:
  StatementText(std::string_view start, std::string_view tableName) {
    sql_.reserve(kUsualLength);
    sql_ += start;
    appendQuoted(sql_, tableName);
  }

  void add(std::string_view text) { sql_ += text; }

  /// For each pair `before`, then the column's name, then `after`; `separator` between two of them.
  Result<void> addPairs(const Pairs& pairs, std::string_view before, std::string_view after,
                        std::string_view separator) {
    values_.reserve(values_.size() + pairs.size());
    for (const DictionaryEntry& entry : pairs) {
      if (const ErrorPtr error = mistakeIn(entry.key)) return error;
      Result<Value> value = bindable(entry);
      if (!value) return value.error();
      values_.push_back(std::move(value).value());
      if (&entry != pairs.data()) sql_ += separator;
      sql_ += before;
      appendQuoted(sql_, entry.key);
      sql_ += after;
    }
    return {};
  }

  [[nodiscard]] VROPreparedStatement take() && { return {std::move(sql_), std::move(values_)}; }

 private:
  /// Bytes of a statement on a few columns.
  static constexpr std::size_t kUsualLength = 192;

  std::string sql_;
  std::vector<Value> values_;
};

Result<void> addConditions(StatementText& text, const std::string& tableName, const Pairs& pairs) {
  if (pairs.empty()) return {};
  text.add(" WHERE ");
  // With its table's name before it, a column that does not exist is an error. Alone, SQLite would
  // take the quoted name for a text, and the condition might hold for every row.
  std::string table;
  appendQuoted(table, tableName);
  return text.addPairs(pairs, table + '.', " = ?", " AND ");
}

Result<VROPreparedStatement> insertStatement(const std::string& table, const Pairs& values) {
  StatementText text("INSERT INTO ", table);
  if (values.empty()) {
    text.add(" DEFAULT VALUES");
    return std::move(text).take();
  }
  text.add(" (");
  if (const Result<void> added = text.addPairs(values, "", "", ", "); !added) return added.error();
  text.add(") VALUES (?");
  for (std::size_t more = 1; more < values.size(); ++more) text.add(", ?");
  text.add(")");
  return std::move(text).take();
}

Result<VROPreparedStatement> updateStatement(const std::string& table, const Pairs& columns,
                                             const Pairs& conditions) {
  if (columns.empty()) {
    return makeDatabaseError(DatabaseError::kNothingToUpdate, "An update sets no column");
  }
  StatementText text("UPDATE ", table);
  text.add(" SET ");
  if (const Result<void> added = text.addPairs(columns, "", " = ?", ", "); !added) {
    return added.error();
  }
  if (const Result<void> added = addConditions(text, table, conditions); !added) {
    return added.error();
  }
  return std::move(text).take();
}

Result<VROPreparedStatement> statementWithConditions(std::string_view start,
                                                     const std::string& table,
                                                     const Pairs& conditions) {
  StatementText text(start, table);
  if (const Result<void> added = addConditions(text, table, conditions); !added) {
    return added.error();
  }
  return std::move(text).take();
}

Result<VROPreparedStatement> selectStatement(const std::string& table,
                                             const std::vector<std::string>& columns,
                                             const Pairs& conditions) {
  std::string start = "SELECT ";
  for (const std::string& column : columns) {
    if (const ErrorPtr error = mistakeIn(column)) return error;
    if (&column != columns.data()) start += ", ";
    // With its table, as in a condition: a column that does not exist is an error, no text.
    appendQuoted(start, table);
    start += '.';
    appendQuoted(start, column);
  }
  start += columns.empty() ? "* FROM " : " FROM ";
  return statementWithConditions(start, table, conditions);
}

}  // namespace

VROPreparedStatementBuilder::VROPreparedStatementBuilder(std::string tableName,
                                                         StatementBuilderType builderType)
    : tableName_(std::move(tableName)), type_(builderType) {}

VROPreparedStatementBuilder& VROPreparedStatementBuilder::addInsertValuesMap(Pairs pairs) {
  append(insertValues_, std::move(pairs));
  return *this;
}

VROPreparedStatementBuilder& VROPreparedStatementBuilder::addSelectColumns(
    const std::vector<std::string>& names) {
  selectColumns_.insert(selectColumns_.end(), names.begin(), names.end());
  return *this;
}

VROPreparedStatementBuilder& VROPreparedStatementBuilder::addUpdateColumnsMap(Pairs pairs) {
  append(updateColumns_, std::move(pairs));
  return *this;
}

VROPreparedStatementBuilder& VROPreparedStatementBuilder::addWhereConditionMap(Pairs pairs) {
  append(conditions_, std::move(pairs));
  return *this;
}

std::optional<VROPreparedStatement> VROPreparedStatementBuilder::build(ErrorPtr* error) const {
  Result<VROPreparedStatement> result = makeStatement();
  if (result.ok()) return std::move(result).value();
  if (error != nullptr) *error = result.error();
  return std::nullopt;
}

Result<VROPreparedStatement> VROPreparedStatementBuilder::makeStatement() const {
  using enum StatementBuilderType;
  if ((type_ != kInsert && !insertValues_.empty()) ||
      (type_ != kSelect && !selectColumns_.empty()) ||
      (type_ != kUpdate && !updateColumns_.empty()) || (type_ == kInsert && !conditions_.empty())) {
    return makeDatabaseError(DatabaseError::kMapNotExpected,
                             "A statement has columns or conditions that its type does not take");
  }
  if ((type_ == kUpdate || type_ == kDelete) && conditions_.empty()) {
    return makeDatabaseError(DatabaseError::kNoCondition,
                             "An update or delete without a condition would hit every row");
  }
  switch (type_) {
    case kInsert:
      return insertStatement(tableName_, insertValues_);
    case kSelect:
      return selectStatement(tableName_, selectColumns_, conditions_);
    case kUpdate:
      return updateStatement(tableName_, updateColumns_, conditions_);
    case kDelete:
      return statementWithConditions("DELETE FROM ", tableName_, conditions_);
  }
  return makeDatabaseError(DatabaseError::kInvalidBuilderType, "No such type of statement");
}

}  // namespace varo::platform
