#include "Platform/Database/VROPreparedStatementBuilderFactory.h"

#include "Platform/Database/DatabaseError.h"

#include <utility>

namespace varo::platform {
namespace {

bool isKnown(StatementBuilderType type) {
  using enum StatementBuilderType;
  return type == kInsert || type == kSelect || type == kUpdate || type == kDelete;
}

std::optional<VROPreparedStatementBuilder> fail(ErrorPtr* error, DatabaseError code,
                                                const char* description) {
  if (error != nullptr) *error = makeDatabaseError(code, description);
  return std::nullopt;
}

}  // namespace

std::optional<VROPreparedStatementBuilder>
VROPreparedStatementBuilderFactory::getPreparedStatementForTableName(
    const std::string& tableName, StatementBuilderType builderType, ErrorPtr* error) {
  if (tableName.empty() || tableName.find('\0') != std::string::npos) {
    return fail(error, DatabaseError::kInvalidTableName,
                "A table's name is empty or has a NUL in it");
  }
  if (!isKnown(builderType)) {
    return fail(error, DatabaseError::kInvalidBuilderType, "No such type of statement");
  }
  return std::optional<VROPreparedStatementBuilder>(std::in_place, tableName, builderType);
}

}  // namespace varo::platform
