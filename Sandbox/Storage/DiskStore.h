#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Storage/RecordDatabase.h"

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace varo::sandbox {

class DiskWriter;

/// Why bytes are not taken: one of the service's statuses and a sentence.
struct WriteProblem {
  int opstatus = 0;
  std::string reason;
};

/// Bytes on disk under keys. A key is only ever a value in the database: the files have names of
/// the store's own, so no key leads out of the directory. Thread-safe.
///
/// Bytes arrive whole or in chunks:
/// - The first chunk sets the length. Chunk n goes to (n - 1) x that length.
/// - Only the last chunk may be shorter.
/// - Some clients repeat the whole content in their last chunk. So a later chunk that is longer
///   than the first replaces everything; it must be longer than the chunks before it.
class DiskStore {
 public:
  struct Stored {
    StoredBytes state;
    ContentReader bytes;
  };
  using WriterOrProblem = std::variant<std::unique_ptr<DiskWriter>, WriteProblem>;

  /// `area` keeps the keys of several stores in one database apart.
  DiskStore(std::string directory, std::string area, RecordDatabase& records);

  [[nodiscard]] std::optional<StoredBytes> state(std::string_view key) const;
  [[nodiscard]] std::optional<Stored> open(std::string_view key) const;
  /// Up to `limit` of those whose keys begin with `prefix` and are not less than `from`, in the
  /// order of their bytes.
  [[nodiscard]] std::vector<KeyedBytes> list(std::string_view prefix, std::string_view from,
                                             std::size_t limit) const;

  /// Begins to replace what is under `key`.
  [[nodiscard]] WriterOrProblem writeWhole(const std::string& key);
  /// Begins chunk `sequence`, from 1: the next one, the last one once more, or 1 to start afresh.
  [[nodiscard]] WriterOrProblem writeChunk(const std::string& key, std::uint64_t sequence);
  /// Begins the chunk after those that are there.
  [[nodiscard]] WriterOrProblem append(const std::string& key);

  /// False when there was nothing.
  [[nodiscard]] bool remove(const std::string& key);
  /// Removes what is under `key`, if anything; while somebody writes it, as soon as he has ended.
  void discard(const std::string& key);

 private:
  friend class DiskWriter;

  /// Keeps other writers from a key while it lives.
  using Lease = std::shared_ptr<void>;
  /// What becomes of the bytes when the key is free again.
  enum class Afterwards { kKeep, kDiscard };
  /// Null when somebody else has the key, who then does afterwards what was asked for here.
  [[nodiscard]] Lease acquire(const std::string& key, Afterwards afterwards = Afterwards::kKeep);
  void release(const std::string& key) noexcept;
  bool removeLeased(const std::string& key);
  [[nodiscard]] std::string pathOf(const std::string& fileName) const;
  void publish(const std::string& key, const StoredBytes& state, const std::string& oldFileName);

  const std::string directory_;
  const std::string area_;
  RecordDatabase& records_;
  platform::Mutex mutex_;
  /// Keys that somebody writes.
  std::map<std::string, Afterwards, std::less<>> busy_ VARO_GUARDED_BY(mutex_);
};

/// Where a file is kept: its record, and its bytes in one of two places. They outlive the services.
struct FileStores {
  RecordDatabase& records;
  DiskStore& serviceBytes;
  DiskStore& plainBytes;
};

}  // namespace varo::sandbox
