#pragma once

#include "Sandbox/Blobs/BlobObject.h"
#include "Sandbox/Storage/DiskStore.h"
#include "Sandbox/Storage/RecordDatabase.h"

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
  [[nodiscard]] std::optional<BlobObject> findObject(const BlobKey& key) const;

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
  RecordDatabase& records_;
  DiskStore& bytes_;
};

}  // namespace varo::sandbox
