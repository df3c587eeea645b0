#pragma once

#include "Platform/Foundation/Mutex.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace SQLite {
class Database;
}

namespace varo::sandbox {

class DiskStore;

/// An upload in parts that has begun and is neither complete nor given up.
struct UploadRecord {
  std::string id;
  std::string key;  ///< Of the object that it becomes.
  std::chrono::sys_seconds begun{};
};

/// A part that has arrived.
struct PartRecord {
  std::uint64_t number = 0;
  std::string bytes;  ///< The key of its bytes in a disk store.
  std::uint64_t size = 0;
  std::string entityTag;
  std::chrono::sys_seconds modified{};
};

/// Records of uploads in parts, in one SQLite file; the bytes are elsewhere. Thread-safe. The
/// functions throw `std::exception` when the database fails.
class UploadDatabase {
 public:
  /// Opens or creates the database at `path`.
  explicit UploadDatabase(const std::string& path);
  ~UploadDatabase();

  void insert(const UploadRecord& upload);
  /// Whether there is an upload `id` of the object `key`.
  [[nodiscard]] bool contains(std::string_view id, std::string_view key) const;
  /// Up to `limit` uploads of keys that begin with `prefix`, by key, then by age: those behind
  /// `afterKey`, or behind the upload `afterId` of that key.
  [[nodiscard]] std::vector<UploadRecord> list(std::string_view prefix, std::string_view afterKey,
                                               std::string_view afterId, std::size_t limit) const;

  /// What a part has taken the place of.
  struct Replaced {
    std::optional<std::string> bytes;
  };
  /// Adds or replaces a part; nothing when there is no such upload (any more).
  [[nodiscard]] std::optional<Replaced> putPart(std::string_view id, const PartRecord& part);
  /// Up to `limit` parts with numbers above `after`, in order.
  [[nodiscard]] std::vector<PartRecord> parts(std::string_view id, std::uint64_t after,
                                              std::size_t limit) const;

  /// Removes an upload with its parts; returns the keys of their bytes, or nothing when there was
  /// no such upload. Of many callers one gets them.
  [[nodiscard]] std::optional<std::vector<std::string>> remove(std::string_view id);

 private:
  [[nodiscard]] bool hasLocked(std::string_view id) const VARO_REQUIRES(mutex_);

  mutable platform::Mutex mutex_;
  const std::unique_ptr<SQLite::Database> database_ VARO_GUARDED_BY(mutex_);
};

/// Where an object store keeps what it has. They outlive the services.
struct ObjectStores {
  DiskStore& objects;
  DiskStore& parts;  ///< Bytes of parts, under random keys.
  UploadDatabase& uploads;
};

}  // namespace varo::sandbox
