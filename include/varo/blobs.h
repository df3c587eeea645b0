#pragma once

#include "varo/export.h"
#include "varo/metadata.h"
#include "varo/names.h"
#include "varo/options.h"
#include "varo/transfer.h"
#include "varo/units.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo {

namespace detail {
class BlobStoreCore;
class BlobWatcher;
}  // namespace detail

/// The blob of one record: `{.table = "employees", .column = "photo", .keys = {{"id", 7}}}`.
struct BlobRef {
  std::string table;
  /// The binary column, without the "blobref_" of the column that links it.
  std::string column;
  /// The record's primary keys, by their columns; at least one.
  std::map<std::string, Scalar, std::less<>> keys;

  friend bool operator==(const BlobRef&, const BlobRef&) = default;
};

/// All blobs of one column: `{.table = "employees", .column = "photo", .keyColumns = {"id"}}`.
struct BlobColumn {
  std::string table;
  std::string column;
  /// The columns that tell the records apart; at least one.
  std::vector<std::string> keyColumns;
};

/// What the table of blobs says of one; docs/schema.md has its numbers.
enum class BlobStatus : std::uint8_t {
  kNotFetched,      ///< nobody has asked for it yet
  kFetching,        ///< a fetch runs, or was broken off by the end of its process
  kPaused,          ///< a fetch was paused or cancelled; the next one goes on from there
  kFailed,          ///< the last fetch failed; the next one goes on from there
  kAvailable,       ///< its file is complete
  kWaitsForUpload,  ///< its file is complete, and the sync engine is to upload it
  kUploading,       ///< its file is complete, and the sync engine uploads it
  kDeletionWaits,   ///< the sync engine is to delete it on the service
  kBeingDeleted,    ///< the sync engine deletes it on the service
  kOther,           ///< a number that this library does not know
};

/// "notFetched" for `kNotFetched`, and so on.
[[nodiscard]] VARO_API std::string_view nameOf(BlobStatus status) noexcept;

/// One blob at one moment.
struct BlobState {
  /// Without keys where nobody named them: the table of blobs does not have them.
  BlobRef ref;
  /// Empty for one that has no row in the table of blobs yet.
  BlobId id;
  BlobStatus status = BlobStatus::kNotFetched;
  /// The same in words, or why it could not be fetched.
  std::string reason;
  /// Where its file is, or will be gone on with; only that of a complete one may be read.
  std::optional<std::filesystem::path> path = {};
  /// Of the complete file, where the table has it.
  std::optional<Bytes> size = {};
  /// Of this blob in a `fetchAll`; none in what the table alone says.
  std::optional<Failure> failure = {};

  /// Whether, as the table has it, the file at `path` is there to be read. `BlobStore::path` looks.
  [[nodiscard]] VARO_API bool hasFile() const noexcept;
};

/// How the service sends the bytes of a blob.
enum class BlobEncoding : std::uint8_t {
  kBytes,   ///< as they are, in ranges; what comes in Base64 is a failure
  kBase64,  ///< in Base64 within JSON, as a whole; at most 64 MiB
};

/// The service that a store fetches from, and how.
struct BlobService {
  /// `url` is that of the blob service, with or without a slash at its end. `chunkSize` is not for
  /// blobs; `parallel` counts for this store and its copies.
  Options options;
  /// The application's scope on the service, as people write it.
  std::string scope;
  /// The object that the records are on the service. Empty: the name of their table.
  std::string object = {};
  /// Bytes that one request asks for. A pause or a broken connection loses at most as many of each
  /// request that is under way.
  Bytes rangeSize = 1_MiB;
  BlobEncoding encoding = BlobEncoding::kBytes;
  /// Name the device and the sync session to the service; empty for none.
  std::string clientId = {};
  std::string syncSessionId = {};
  /// Further parameters of each request's address.
  std::map<std::string, std::string> parameters = {};
  /// Requests for one blob that are under way at once, from 1 to 64: as many of them as make it
  /// faster, beginning with one. Those that come early wait for the bytes in front of them, in
  /// memory up to 1 MiB each, so a blob needs a few times `rangeSize` for each.
  int parallelRanges = 4;
};

/// When `BlobStore::remove` removes the file.
enum class FileRemoval : std::uint8_t {
  kLeftToSync,  ///< not now: the sync engine does, when the service has deleted the blob
  kNow,         ///< at once, before a sync session
};

/// As long as it lives, its callback is told of changes: see `BlobStore::watch`.
///
/// When its destructor has returned, the callback does not run any more; inside of the callback
/// the destructor does not wait for that. Movable, not copyable. Not thread-safe.
class [[nodiscard]] BlobWatch {
 public:
  /// Watches nothing.
  BlobWatch() noexcept = default;
  VARO_API explicit BlobWatch(std::shared_ptr<detail::BlobWatcher> watcher) noexcept;
  VARO_API BlobWatch(BlobWatch&& other) noexcept;
  VARO_API BlobWatch& operator=(BlobWatch&& other) noexcept;
  VARO_API ~BlobWatch();

 private:
  std::shared_ptr<detail::BlobWatcher> watcher_;
};

/// The blobs of one application's offline database: brings them into files, and keeps their state
/// in the table of blobs that the application's sync engine reads as well (docs/schema.md).
///
/// A store is a cheap handle: its copies share connections, settings and places. Thread-safe. What
/// it begins goes on when the last copy is gone. Stores on several databases live side by side,
/// each with its own directory of files; several on one database share its directory.
///
/// All failures name table, keys and column. Those of the database are `Kind::kDatabase`.
class BlobStore {
 public:
  /// Looks at the database and the directory, and checks the options; sends nothing.
  ///
  /// - `database`: the SQLite file, which the application owns. `Kind::kDatabase` where it is not
  ///   there, is no database, or has no table of blobs.
  /// - `files`: the directory that the blobs' files come into, named after their ids.
  ///   `Kind::kLocalFile` where it is not there or cannot be written, `Kind::kConflict` where an
  ///   open store has it for another database, whose blobs may have the same ids.
  /// - `Kind::kInvalidArgument` names the option that is wrong, `Kind::kShutDown` after `shutDown`.
  [[nodiscard]] static VARO_API Outcome<BlobStore> open(const std::filesystem::path& database,
                                                        const std::filesystem::path& files,
                                                        BlobService service);

  // Not moved: a store that was moved from could do nothing.
  BlobStore(const BlobStore&) = default;
  BlobStore& operator=(const BlobStore&) = default;
  ~BlobStore() = default;

  /// Brings a blob into its file, and says where that is. Nothing is sent where it is there
  /// already; one whose file has vanished is fetched anew.
  ///
  /// - A pause stops the network at once and keeps the partial file; a resume goes on at its last
  ///   byte, with credentials asked for anew. Where the service tells neither entity tag nor date
  ///   of the object, it begins anew instead: the bytes could be of another one.
  /// - Cancelled or failed: the row and the partial file stay, and a later fetch goes on there.
  /// - Of two fetches of one blob the later one waits for the earlier one's end or pause.
  /// - The progress is in bytes of the file.
  ///
  /// Failures: `kNotFound` for no such record, or none on the service; `kConflict` for a blob that
  /// is to be deleted, or whose file another process is writing; `kIntegrity` where the object
  /// changed under way.
  VARO_API Transfer<std::filesystem::path> fetch(BlobRef blob) const;

  /// Fetches all of them, a few at a time, and says what became of each, in the order of `blobs`. A
  /// blob that cannot be fetched has its `failure` in its state, and the others go on.
  ///
  /// - Pause, resume and cancel reach those that run and those that wait.
  /// - The outcome is a failure where it was cancelled or the library was shut down. What was
  ///   fetched by then stays.
  /// - One that is named twice is fetched once.
  /// - The progress is in bytes of all files; its total is known once the last one has begun.
  VARO_API Transfer<std::vector<BlobState>> fetchAll(std::vector<BlobRef> blobs) const;

  /// The blobs of all records of a table, as the database has them now; for `fetchAll`.
  [[nodiscard]] VARO_API Outcome<std::vector<BlobRef>> blobsOf(const BlobColumn& column) const;

  /// What the database says of this blob now. `kNotFound` for no such record.
  [[nodiscard]] VARO_API Outcome<BlobState> state(const BlobRef& blob) const;
  /// What it says of all blobs that have a row in the table of blobs, by their ids.
  [[nodiscard]] VARO_API Outcome<std::vector<BlobState>> states() const;

  /// Has `callback` called with the state of a blob whenever this process has changed it, through
  /// whatever store on the database. Called on threads of the library, one call at a time, with no
  /// lock held, in the order of the changes; it may call anything, and what it throws goes no
  /// further. What others change (the sync engine, other processes) is told by `states`.
  VARO_API BlobWatch watch(std::function<void(const BlobState&)> callback) const;

  /// Where the file of a blob is. `kNotFound` for no such record, or one whose file is not there to
  /// be read.
  [[nodiscard]] VARO_API Outcome<std::filesystem::path> path(const BlobRef& blob) const;

  /// Has the sync engine delete the blob on the service, and gives its state then. Cancel a fetch
  /// of it first. `kLocalFile` for a file that cannot be removed: then nothing is recorded.
  [[nodiscard]] VARO_API Outcome<BlobState> remove(
      const BlobRef& blob, FileRemoval when = FileRemoval::kLeftToSync) const;

 private:
  explicit BlobStore(std::shared_ptr<detail::BlobStoreCore> core) : core_(std::move(core)) {}

  std::shared_ptr<detail::BlobStoreCore> core_;
};

}  // namespace varo
