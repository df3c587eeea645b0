#include "Platform/Database/DatabaseError.h"

#include <memory>
#include <utility>

namespace varo::platform {

ErrorPtr makeDatabaseError(DatabaseError code, std::string description) {
  return Error::make(kDatabaseErrorDomain, static_cast<std::int64_t>(code), std::move(description));
}

ErrorPtr makeSqliteError(int code, std::string description, const std::string& path) {
  return std::make_shared<Error>(
      std::string(kSqliteErrorDomain), code,
      Dictionary{{std::string(kLocalizedDescriptionKey), std::move(description)}, {"path", path}});
}

}  // namespace varo::platform
