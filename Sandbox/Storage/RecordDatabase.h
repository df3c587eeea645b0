#pragma once

#include "Platform/Foundation/Mutex.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace SQLite {
class Database;
}

namespace varo::sandbox {

/// A file that the object service knows.
struct FileRecord {
  std::string id;
  std::string metadata;  ///< A JSON object.
  std::string kind;      ///< How its bytes travel, in the form of `textOf(TemplateKind)`.
  bool committed = false;
  std::uint64_t size = 0;
  std::string entityTag;
  std::string created;  ///< ISO 8601, UTC; set by `insert`.
  std::int64_t revision = 0;
};

/// What is stored under a key of a disk store.
struct StoredBytes {
  std::string fileName;  ///< Below the disk store's directory.
  std::uint64_t size = 0;
  std::uint64_t chunkLength = 0;  ///< Of the first chunk.
  std::uint64_t chunks = 0;
  std::string entityTag;
  std::chrono::sys_seconds modified{};  ///< 1970 for what an older sandbox has stored.
};

/// What is stored, with its key.
struct KeyedBytes {
  std::string key;
  StoredBytes state;
};

/// Records of files and of stored bytes, in one SQLite file. Thread-safe. The functions throw
/// `std::exception` when the database fails.
class RecordDatabase {
 public:
  /// Names and texts by which `list` finds a record.
  using Properties = std::vector<std::pair<std::string, std::string>>;

  /// Opens or creates the database at `path`.
  explicit RecordDatabase(const std::string& path);
  ~RecordDatabase();

  void insert(const FileRecord& record, const Properties& properties);
  [[nodiscard]] std::optional<FileRecord> find(std::string_view id) const;
  /// Stores `record` unless somebody else did since it was read: then false and nothing changes.
  [[nodiscard]] bool replace(const FileRecord& record, const Properties& properties);
  enum class Scope { kCommitted, kAll };
  /// The records that have all of these properties, oldest first.
  [[nodiscard]] std::vector<FileRecord> list(const Properties& wanted,
                                             Scope scope = Scope::kCommitted) const;
  /// Does nothing when there is no such record.
  void remove(std::string_view id);

  [[nodiscard]] std::optional<StoredBytes> findStored(std::string_view area,
                                                      std::string_view key) const;
  void putStored(std::string_view area, std::string_view key, const StoredBytes& state);
  void removeStored(std::string_view area, std::string_view key);
  /// Up to `limit` of those whose keys begin with `prefix` and are not less than `from`, in the
  /// order of their bytes.
  [[nodiscard]] std::vector<KeyedBytes> listStored(std::string_view area, std::string_view prefix,
                                                   std::string_view from, std::size_t limit) const;

  /// What was put under an object's name: a JSON object.
  [[nodiscard]] std::optional<std::string> findObject(std::string_view name) const;
  void putObject(std::string_view name, std::string_view definition);
  /// Removes all of them; returns their names.
  std::vector<std::string> removeObjects();

 private:
  void writePropertiesLocked(std::string_view id, const Properties& properties)
      VARO_REQUIRES(mutex_);

  mutable platform::Mutex mutex_;
  const std::unique_ptr<SQLite::Database> database_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::sandbox
