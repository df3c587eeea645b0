#pragma once

#include "Platform/Database/VROPreparedStatement.h"
#include "Platform/Foundation/Value.h"

#include <optional>
#include <string>
#include <vector>

namespace varo::platform {

/// What a statement does. 3 is not used.
enum class StatementBuilderType : int { kInsert = 0, kSelect = 1, kUpdate = 2, kDelete = 4 };

/// Collects columns and values, and makes the statement. Every value becomes a parameter and every
/// name a quoted identifier, so neither can say anything in SQL. Not thread-safe.
///
/// A missing or null value is SQL's NULL, a boolean 0 or 1, bytes a BLOB (of at most 16 MiB), a
/// whole number beyond 64 bits the text of its digits. Arrays, dictionaries, errors, shared objects
/// and NaN have no SQL form.
class VROPreparedStatementBuilder {
 public:
  using Pairs = std::vector<DictionaryEntry>;

  /// By `VROPreparedStatementBuilderFactory`, which checks the two.
  VROPreparedStatementBuilder(std::string tableName, StatementBuilderType builderType);

  /// The row of an insert. None at all insert the columns' defaults.
  VROPreparedStatementBuilder& addInsertValuesMap(Pairs pairs);
  /// What a select reads, in this order; all columns where none is named.
  VROPreparedStatementBuilder& addSelectColumns(const std::vector<std::string>& names);
  /// What an update sets.
  VROPreparedStatementBuilder& addUpdateColumnsMap(Pairs pairs);
  /// Equality tests, joined by AND. As everywhere in SQL, nothing equals NULL: such a condition
  /// matches no row.
  VROPreparedStatementBuilder& addWhereConditionMap(Pairs pairs);

  /// The statement. None, with `error` set unless it is null: domain "Database", for a column's
  /// name that is empty or has a NUL, for a value without an SQL form, for a map of another type of
  /// statement, for an update of nothing, and for an update or delete without any condition, which
  /// would hit every row; domain "POSIX" for bytes of a file that cannot be read.
  [[nodiscard]] std::optional<VROPreparedStatement> build(ErrorPtr* error) const;

 private:
  [[nodiscard]] Result<VROPreparedStatement> makeStatement() const;

  const std::string tableName_;
  const StatementBuilderType type_;
  std::vector<std::string> selectColumns_;
  Pairs insertValues_;
  Pairs updateColumns_;
  Pairs conditions_;
};

}  // namespace varo::platform
