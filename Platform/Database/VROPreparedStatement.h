#pragma once

#include "Platform/Foundation/Value.h"

#include <string>
#include <utility>
#include <vector>

namespace varo::platform {

/// The text of one SQL statement and the values of its parameters, in order. Made by
/// `VROPreparedStatementBuilder`; belongs to no database. Immutable, so thread-safe.
class VROPreparedStatement {
 public:
  /// `values` are missing, null, booleans, numbers, texts, bytes in memory, or in a
  /// `StatementGroup` an `InsertedRowId`; others fail when the statement is executed.
  VROPreparedStatement(std::string sql, std::vector<Value> values)
      : sql_(std::move(sql)), values_(std::move(values)) {}

  [[nodiscard]] const std::string& sql() const noexcept { return sql_; }
  [[nodiscard]] const std::vector<Value>& values() const noexcept { return values_; }

 private:
  std::string sql_;
  std::vector<Value> values_;
};

}  // namespace varo::platform
