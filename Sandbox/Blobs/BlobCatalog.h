#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Blobs/BlobObject.h"
#include "Sandbox/Storage/DiskStore.h"
#include "Sandbox/Storage/RecordDatabase.h"

#include <boost/json/fwd.hpp>

#include <cstdint>
#include <optional>
#include <string>

namespace varo::sandbox {

/// The objects of the blob service: what each is, and the bytes of those that are stored.
/// Thread-safe. Exceptions of the record database pass through.
class BlobCatalog {
 public:
  struct Found {
    BlobObject object;
    ContentReader bytes;  ///< Null where there is no content.
    std::uint64_t size = 0;
    std::string entityTag;  ///< Strong: another content has another one.
  };

  BlobCatalog(RecordDatabase& records, DiskStore& bytes);

  [[nodiscard]] std::optional<Found> find(const BlobKey& key) const;

  /// Changes what is known under `key` as `blobObjectFrom` says: a tester can set the mode of a
  /// blob alone. Returns which entry is wrong; nothing changes then.
  [[nodiscard]] std::optional<std::string> define(const BlobKey& key,
                                                  const boost::json::object& entries);
  /// Replaces what is known under `key`. Stored bytes go when the content is now a generated one.
  void put(const BlobKey& key, const BlobObject& object);
  /// Begins to store the bytes of `key`; once they are complete, `putStored` makes them its
  /// content.
  [[nodiscard]] DiskStore::WriterOrProblem write(const BlobKey& key);
  /// Whatever else is known under `key` stays.
  void putStored(const BlobKey& key);
  /// Forgets all objects.
  void clear();

 private:
  [[nodiscard]] std::optional<BlobObject> findObjectLocked(const std::string& name) const
      VARO_REQUIRES(mutex_);
  void putLocked(const std::string& name, const BlobObject& object) VARO_REQUIRES(mutex_);

  // The two guard themselves. This lock makes one step of a record's reading and writing, and of
  // the record and its bytes; it is taken before theirs, which never take this one.
  mutable platform::Mutex mutex_;
  RecordDatabase& records_;
  DiskStore& bytes_;
};

}  // namespace varo::sandbox
