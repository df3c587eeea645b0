#pragma once

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/WorkQueue.h"
#include "varo/blobs.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::detail {

class BlobWatcher;

/// One database of an application and the directory of its blobs' files, as all stores on it share
/// them in this process. Every call is some statements on the database, on the calling thread.
/// Thread-safe.
class BlobDatabase final : public std::enable_shared_from_this<BlobDatabase> {
 public:
  /// The one of these paths. Failures are those of `BlobStore::open`.
  [[nodiscard]] static Outcome<std::shared_ptr<BlobDatabase>> open(
      const std::filesystem::path& database, const std::filesystem::path& files);

  /// Has an operation work on this database, and tell the watchers of the states that it writes.
  void direct(binary::OperationSettings& settings);

  /// A blob that is about to be fetched.
  struct Prepared {
    std::string id;
    /// Set where it is there already.
    std::optional<std::filesystem::path> file;
  };
  /// Makes the blob's row where it has none. `type` is for a new row.
  [[nodiscard]] Outcome<Prepared> prepare(const BlobRef& blob, std::string_view type,
                                          std::string_view about);

  [[nodiscard]] Outcome<BlobState> state(const BlobRef& blob, std::string_view about) const;
  [[nodiscard]] Outcome<std::vector<BlobState>> states() const;
  [[nodiscard]] Outcome<std::vector<BlobRef>> blobsOf(const BlobColumn& column) const;
  [[nodiscard]] Outcome<BlobState> remove(const BlobRef& blob, FileRemoval when);

  void add(const std::shared_ptr<BlobWatcher>& watcher);

 private:
  struct Badge {};
  struct Found;

 public:
  BlobDatabase(Badge badge, binary::OperationSettings::BlobPlaces places);

 private:
  [[nodiscard]] static Outcome<void> checkFiles(const std::string& files);
  [[nodiscard]] Outcome<void> checkTable() const;
  [[nodiscard]] Outcome<Found> find(const BlobRef& blob, std::string_view about) const;
  [[nodiscard]] Outcome<Prepared> prepareInTurn(const BlobRef& blob, std::string_view type,
                                                std::string_view about, bool& hasChanged) const;
  [[nodiscard]] Outcome<Prepared> prepareLinked(const BlobRef& blob, const Found& found,
                                                std::string_view about, bool& hasChanged) const;
  void changed(const std::string& id) noexcept;

  const binary::OperationSettings::BlobPlaces places_;
  const binary::BlobStoreTable table_;
  /// A new row and its link are two statements, and so are a look at a file and what follows.
  platform::SerialQueue changes_{"blob rows"};
  /// A look at a row and what the watchers are told of it.
  platform::SerialQueue tellings_{"blob states"};

  platform::Mutex mutex_;
  std::vector<std::weak_ptr<BlobWatcher>> watchers_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
