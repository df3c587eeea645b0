#pragma once

#include "Platform/Database/DatabaseConnection.h"
#include "Platform/Foundation/Mutex.h"

#include <chrono>
#include <memory>
#include <string>
#include <vector>

namespace varo::platform {

/// The process's connections, one a path, a few at most. Each is closed when it has not been used
/// for a second, and at the latest when the runtime shuts down. Thread-safe.
class DatabaseConnections {
 public:
  /// Made at the first call and never destroyed.
  [[nodiscard]] static DatabaseConnections& shared();

  /// `DatabaseConnection::open`, `read`, `write` and `writeGroups` on the connection of this path.
  [[nodiscard]] Result<void> open(const std::string& path);
  [[nodiscard]] Result<StatementOutcome> read(const std::string& path,
                                              const VROPreparedStatement& statement,
                                              std::chrono::milliseconds busyTimeout);
  [[nodiscard]] Result<StatementOutcome> write(const std::string& path,
                                               const VROPreparedStatement& statement,
                                               std::chrono::milliseconds busyTimeout);
  /// `DatabaseConnection::writeLater`, with a commit of its own after `tuning::kPatience`.
  void writeLater(const std::string& path, VROPreparedStatement statement,
                  std::chrono::milliseconds busyTimeout, DatabaseConnection::Told told);
  [[nodiscard]] std::vector<GroupOutcome> writeGroups(const std::string& path,
                                                      const std::vector<StatementGroup>& groups,
                                                      std::chrono::milliseconds busyTimeout);

 private:
  struct Entry {
    std::string path;
    std::shared_ptr<DatabaseConnection> connection;
  };

  DatabaseConnections() = default;
  [[nodiscard]] std::shared_ptr<DatabaseConnection> connectionOf(const std::string& path);
  void flushLater(const std::shared_ptr<DatabaseConnection>& connection);
  void closeLater();
  void closeUnusedSince(DatabaseConnection::Clock::time_point time);

  Mutex mutex_;
  /// The last used first.
  std::vector<Entry> entries_ VARO_GUARDED_BY(mutex_);
  /// Whether a timer runs that will look for unused ones.
  bool timerRuns_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::platform
