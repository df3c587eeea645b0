#include "Platform/Database/VRODatabaseAPI.h"

#include "Platform/Database/DatabaseConnections.h"
#include "Platform/Database/DatabaseError.h"
#include "Platform/Database/DatabaseTuning.h"
#include "Platform/Foundation/Result.h"

#include <utility>

namespace varo::platform {
namespace {

constexpr std::chrono::milliseconds kLongestBusyTimeout{3'600'000};

Result<std::chrono::milliseconds> busyTimeoutOf(const Dictionary& options) {
  const Value& option = options[kBusyTimeoutOption];
  if (option.isMissing()) return tuning::kBusyTimeout;
  const std::int64_t* milliseconds = option.integer();
  if (milliseconds == nullptr || *milliseconds < 0 || *milliseconds > kLongestBusyTimeout.count()) {
    return makeDatabaseError(DatabaseError::kInvalidOption,
                             "busyTimeoutMs is not an integer from 0 to 3600000");
  }
  return std::chrono::milliseconds(*milliseconds);
}

template <typename T>
bool succeeded(const Result<T>& result, ErrorPtr* error) {
  if (!result && error != nullptr) *error = result.error();
  return result.ok();
}

Result<std::int64_t> changedRowsOf(const Result<StatementOutcome>& outcome) {
  if (!outcome) return outcome.error();
  return outcome->changedRows;
}

}  // namespace

VRODatabaseAPI::VRODatabaseAPI(Badge, std::string path, std::chrono::milliseconds busyTimeout)
    : path_(std::move(path)), busyTimeout_(busyTimeout) {}

std::shared_ptr<VRODatabaseAPI> VRODatabaseAPI::initWithPath(const std::string& path,
                                                             const Dictionary& options,
                                                             ErrorPtr* error) {
  if (path.find('\0') != std::string::npos) {
    if (error != nullptr) {
      *error = makeDatabaseError(DatabaseError::kInvalidPath, "The path has a NUL in it");
    }
    return nullptr;
  }
  const Result<std::chrono::milliseconds> busyTimeout = busyTimeoutOf(options);
  if (!succeeded(busyTimeout, error)) return nullptr;
  if (!succeeded(DatabaseConnections::shared().open(path), error)) return nullptr;
  return std::make_shared<VRODatabaseAPI>(Badge{}, path, *busyTimeout);
}

std::int64_t VRODatabaseAPI::executeSingleInsertStatement(const VROPreparedStatement& statement,
                                                          ErrorPtr* error) const {
  const Result<StatementOutcome> outcome =
      DatabaseConnections::shared().write(path_, statement, busyTimeout_);
  return succeeded(outcome, error) ? outcome->insertedRow : -1;
}

std::optional<Array> VRODatabaseAPI::executeSelectPreparedStatement(
    const VROPreparedStatement& statement, ErrorPtr* error) const {
  const Result<StatementOutcome> outcome =
      DatabaseConnections::shared().read(path_, statement, busyTimeout_);
  if (!succeeded(outcome, error)) return std::nullopt;
  return outcome->rows;
}

bool VRODatabaseAPI::executePreparedStatement(const VROPreparedStatement& statement,
                                              ErrorPtr* error) const {
  return succeeded(DatabaseConnections::shared().write(path_, statement, busyTimeout_), error);
}

Result<std::int64_t> VRODatabaseAPI::executeAndCountChanges(
    const VROPreparedStatement& statement) const {
  return changedRowsOf(DatabaseConnections::shared().write(path_, statement, busyTimeout_));
}

void VRODatabaseAPI::executeLater(
    VROPreparedStatement statement,
    std::function<void(const Result<std::int64_t>& changedRows)> told) const {
  DatabaseConnections::shared().writeLater(
      path_, std::move(statement), busyTimeout_,
      [told = std::move(told)](const Result<StatementOutcome>& outcome) {
        told(changedRowsOf(outcome));
      });
}

std::vector<GroupOutcome> VRODatabaseAPI::executeGroups(
    const std::vector<StatementGroup>& groups) const {
  return DatabaseConnections::shared().writeGroups(path_, groups, busyTimeout_);
}

}  // namespace varo::platform
