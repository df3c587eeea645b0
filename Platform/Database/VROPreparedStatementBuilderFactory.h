#pragma once

#include "Platform/Database/VROPreparedStatementBuilder.h"

#include <optional>
#include <string>

namespace varo::platform {

/// Makes builders of statements. Stateless, thread-safe.
class VROPreparedStatementBuilderFactory {
 public:
  VROPreparedStatementBuilderFactory() = delete;

  /// A builder for one statement on this table. None, with `error` set unless it is null (domain
  /// "Database"), for a name that is empty or has a NUL, and for a type that there is not. Whether
  /// there is such a table shows when the statement is executed.
  [[nodiscard]] static std::optional<VROPreparedStatementBuilder> getPreparedStatementForTableName(
      const std::string& tableName, StatementBuilderType builderType, ErrorPtr* error);
};

}  // namespace varo::platform
