#include "Client/BlobDatabase.h"

#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Client/BlobStates.h"
#include "Client/BlobWatcher.h"
#include "Client/Failures.h"
#include "Client/FileRecords.h"
#include "Platform/Foundation/File.h"

#include <fmt/format.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace varo::detail {

using binary::BlobStoreTable;
using binary::FileClaim;
using binary::OperationSettings;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::MutexLock;
namespace blobs = binary::blobs;
namespace fs = std::filesystem;

namespace {

/// Absolute, so that a later change of the current directory changes nothing.
std::string absoluteText(const fs::path& path) {
  std::error_code failed;
  const fs::path given = fs::absolute(path, failed);
  if (failed) return path.string();
  fs::path whole = given.lexically_normal();
  // ".." behind a symbolic link is the parent of what it links to.
  if (!fs::equivalent(whole, given, failed)) whole = given;
  // "files/" names the same as "files".
  if (!whole.has_filename()) whole = whole.parent_path();
  return whole.string();
}

bool isSame(const fs::path& one, const fs::path& other) {
  std::error_code failed;
  return fs::equivalent(one, other, failed);
}

/// The databases that stores of this process have open.
struct OpenDatabases {
  static OpenDatabases& shared() {
    static auto& instance = *new OpenDatabases();  // downloads may go on until the very end
    return instance;
  }

  platform::Mutex mutex;
  std::vector<std::weak_ptr<BlobDatabase>> all VARO_GUARDED_BY(mutex);
};

BlobStoreTable tableAt(const OperationSettings::BlobPlaces& places) {
  OperationSettings settings;
  settings.policy = binary::TransferPolicy::kSafe;
  settings.blobPlaces = places;
  return {"", settings};
}

/// Keeps downloads from a file that is to be removed. Null where there is no folder for it.
Outcome<FileClaim::Lease> claimed(const std::string& file, std::string_view about) {
  auto attempt = FileClaim::acquire(file, [] {});
  if (attempt.claim != nullptr) return std::move(attempt.claim);
  if (attempt.error == nullptr) {
    return failureOf(Kind::kConflict, fmt::format("{}: It is being fetched; cancel that", about));
  }
  if (attempt.error->code() == ENOENT) return FileClaim::Lease();
  return failureFrom(attempt.error, about);
}

Failure noSuchRecord(std::string_view about) {
  return failureOf(Kind::kNotFound, fmt::format("{}: There is no such record", about));
}

}  // namespace

/// A record's blob.
struct BlobDatabase::Found {
  /// None for a record that is linked to no blob.
  std::optional<Dictionary> row;
};

BlobDatabase::BlobDatabase(Badge /*badge*/, OperationSettings::BlobPlaces places)
    : places_(std::move(places)), table_(tableAt(places_)) {}

Outcome<std::shared_ptr<BlobDatabase>> BlobDatabase::open(const fs::path& database,
                                                          const fs::path& files) {
  const auto opened = std::make_shared<BlobDatabase>(
      Badge{}, OperationSettings::BlobPlaces{absoluteText(database), absoluteText(files)});
  if (auto good = checkFiles(opened->places_.files); !good) return std::move(good).error();
  if (auto good = opened->checkTable(); !good) return std::move(good).error();

  std::vector<std::shared_ptr<BlobDatabase>> held;  // so that none goes with the lock held
  OpenDatabases& open = OpenDatabases::shared();
  const MutexLock lock(open.mutex);
  std::erase_if(open.all, [](const auto& weak) { return weak.expired(); });
  for (const auto& weak : open.all) {
    held.push_back(weak.lock());
    const auto& other = held.back();
    if (other == nullptr) continue;
    const bool isSameDatabase = isSame(other->places_.database, database);
    const bool hasSameFiles = isSame(other->places_.files, files);
    if (isSameDatabase && hasSameFiles) return other;
    if (isSameDatabase || hasSameFiles) {
      return failureOf(
          Kind::kConflict,
          fmt::format("An open store keeps the files of \"{}\" in \"{}\"; \"{}\" cannot go with "
                      "\"{}\" at the same time",
                      other->places_.database, other->places_.files, database.string(),
                      files.string()));
    }
  }
  open.all.push_back(opened);
  return opened;
}

Outcome<void> BlobDatabase::checkFiles(const std::string& files) {
  const auto wrong = [&files](const std::string& what) {
    return failureOf(Kind::kLocalFile,
                     fmt::format("The directory of files \"{}\" {}", files, what));
  };
  std::error_code none;
  if (!fs::is_directory(files, none)) return wrong("is not there, or is no directory");
  // A file tells more than permissions do: of a full disk, of a file system that cannot be written.
  if (const auto made = platform::File::createUnnamed(files); !made) {
    Failure failure =
        failureFrom(made.error(), fmt::format("The directory of files \"{}\"", files));
    return failure.kind == Kind::kDiskFull ? failure : wrong("cannot be written");
  }
  return {};
}

/// Every column that is needed, without a row.
Outcome<void> BlobDatabase::checkTable() const {
  const auto rows =
      table_.records(binary::kVaroSyncBlobStoreMangager,
                     {blobs::kId, blobs::kLocalPath, blobs::kTableName, blobs::kColumnName,
                      blobs::kType, blobs::kState, blobs::kStatus, blobs::kRetry, blobs::kSize},
                     {{blobs::kId, -1}});
  if (rows) return {};
  return databaseFailure(rows.error(), fmt::format("The database \"{}\"", places_.database));
}

void BlobDatabase::direct(OperationSettings& settings) {
  settings.blobPlaces = places_;
  settings.onBlobState = [self = shared_from_this()](const std::string& id) { self->changed(id); };
}

// Looking.

Outcome<BlobDatabase::Found> BlobDatabase::find(const BlobRef& blob, std::string_view about) const {
  if (auto good = check(blob, about); !good) return std::move(good).error();
  ErrorPtr unreadable;
  const auto record = table_.record(blob.table, dictionaryFrom(blob.keys), &unreadable);
  if (unreadable != nullptr) return databaseFailure(unreadable, about);
  if (!record) return noSuchRecord(about);
  const auto link = BlobStoreTable::linkIn(*record, blob.column);
  if (!link) {
    return failureOf(Kind::kInvalidArgument,
                     fmt::format("{}: The table has no column \"{}\"", about,
                                 BlobStoreTable::linkColumn(blob.column)));
  }
  if (*link == blobs::kNull) return Found{};
  auto row = table_.row(*link, &unreadable);
  if (unreadable != nullptr) return databaseFailure(unreadable, about);
  if (!row) {
    return failureOf(
        Kind::kDatabase,
        fmt::format("{}: The record is linked to the blob {}, which has no row", about, *link));
  }
  return Found{std::move(row)};
}

Outcome<BlobState> BlobDatabase::state(const BlobRef& blob, std::string_view about) const {
  return find(blob, about).transform([&](const Found& found) {
    return found.row ? stateFrom(*found.row, blob) : stateWithoutRow(blob);
  });
}

Outcome<std::vector<BlobState>> BlobDatabase::states() const {
  const auto rows = table_.records(binary::kVaroSyncBlobStoreMangager, {});
  if (!rows) {
    return databaseFailure(rows.error(), fmt::format("The blobs in \"{}\"", places_.database));
  }
  std::vector<BlobState> states;
  states.reserve(rows->size());
  for (const auto& row : *rows) states.push_back(stateFrom(row.dictionaryValue()));
  return states;
}

Outcome<std::vector<BlobRef>> BlobDatabase::blobsOf(const BlobColumn& column) const {
  const std::string about = fmt::format("The blobs {} of {}", column.column, column.table);
  if (column.table.empty() || column.column.empty() || column.keyColumns.empty()) {
    return failureOf(Kind::kInvalidArgument,
                     about + ": BlobColumn::table, column and keyColumns must not be empty");
  }
  // The link is read only to have a column that there is not told.
  std::vector<std::string> columns = column.keyColumns;
  columns.push_back(BlobStoreTable::linkColumn(column.column));
  const auto records = table_.records(column.table, columns);
  if (!records) return databaseFailure(records.error(), about);
  std::vector<BlobRef> found;
  found.reserve(records->size());
  for (const auto& record : *records) {
    BlobRef blob{.table = column.table, .column = column.column, .keys = {}};
    const Dictionary values = record.dictionaryValue();
    for (const std::string& key : column.keyColumns) {
      auto value = scalarFrom(values[key]);
      if (!value) {
        return failureOf(Kind::kInvalidArgument,
                         fmt::format("{}: {} has bytes, which are no key", about, key));
      }
      blob.keys.emplace(key, *std::move(value));
    }
    found.push_back(std::move(blob));
  }
  return found;
}

// Changing.

Outcome<BlobDatabase::Prepared> BlobDatabase::prepare(const BlobRef& blob, std::string_view type,
                                                      std::string_view about) {
  std::optional<Outcome<Prepared>> prepared;
  bool hasChanged = false;
  changes_.sync([&] { prepared = prepareInTurn(blob, type, about, hasChanged); });
  if (hasChanged && *prepared) changed((*prepared)->id);
  return *std::move(prepared);
}

Outcome<BlobDatabase::Prepared> BlobDatabase::prepareInTurn(const BlobRef& blob,
                                                            std::string_view type,
                                                            std::string_view about,
                                                            bool& hasChanged) const {
  auto found = find(blob, about);
  if (!found) return std::move(found).error();
  if (found->row) return prepareLinked(blob, *found, about, hasChanged);
  ErrorPtr refused;
  auto id =
      table_.obtainBlobId({blob.table, blob.column, dictionaryFrom(blob.keys), type}, {}, &refused);
  if (refused != nullptr) return databaseFailure(refused, about);
  if (!id) return noSuchRecord(about);
  hasChanged = true;
  return Prepared{*std::move(id), std::nullopt};
}

Outcome<BlobDatabase::Prepared> BlobDatabase::prepareLinked(const BlobRef& blob, const Found& found,
                                                            std::string_view about,
                                                            bool& hasChanged) const {
  const BlobState state = stateFrom(*found.row, blob);
  // As the row has it: "007" in a link is the blob 7, and its file's name.
  Prepared prepared{state.id.text(), std::nullopt};
  switch (state.status) {
    case BlobStatus::kDeletionWaits:
    case BlobStatus::kBeingDeleted:
      return failureOf(Kind::kConflict, fmt::format("{}: {}", about, state.reason));
    case BlobStatus::kAvailable:
    case BlobStatus::kWaitsForUpload:
    case BlobStatus::kUploading:
      break;
    default:
      return prepared;
  }
  if (state.path && platform::fileKindAt(state.path->string()) != platform::FileKind::kNothing) {
    prepared.file = state.path;
    return prepared;
  }
  if (state.status != BlobStatus::kAvailable) {
    return failureOf(Kind::kLocalFile,
                     fmt::format("{}: {}, but there is no file \"{}\"", about, state.reason,
                                 state.path.value_or(fs::path()).string()));
  }
  const auto noted = table_.updateInState(prepared.id, binary::kFileAvailable, blobs::lostFile());
  if (!noted) return databaseFailure(noted.error(), about);
  hasChanged = true;
  return prepared;
}

Outcome<BlobState> BlobDatabase::remove(const BlobRef& blob, FileRemoval when) {
  const std::string about = "removal of the blob " + describe(blob);
  const bool isNow = when == FileRemoval::kNow;
  binary::BlobDeletion deletion;
  std::optional<Failure> refused;
  changes_.sync([&] {
    // First, since the deletion itself does not tell a database that fails from a missing record.
    auto found = find(blob, about);
    const auto file = found && found->row ? binary::localPathIn(*found->row) : std::nullopt;
    auto claim =
        found && isNow && file ? claimed(*file, about) : Outcome<FileClaim::Lease>(nullptr);
    if (!found || !claim) {
      refused = found ? std::move(claim).error() : std::move(found).error();
      return;
    }
    // What has no file yet has none that could be in the way.
    deletion = binary::BlobFiles::recordDeletion(
        table_, {"", blob.table, blob.column, dictionaryFrom(blob.keys)}, isNow && file,
        binary::TransferPolicy::kSafe);
    // Of a partial file that is gone nothing is to be remembered.
    if (*claim != nullptr && deletion.fileRemoved) (*claim)->finish();
  });
  if (refused) return *std::move(refused);
  if (deletion.blobId && deletion.recorded) changed(*deletion.blobId);
  if (deletion.error != nullptr) {
    const bool isFile = deletion.error->code() == binary::kCodeInvalidStateForBinaryOperation;
    return isFile ? failureFrom(deletion.error, about) : databaseFailure(deletion.error, about);
  }
  return state(blob, about);
}

// Watching.

void BlobDatabase::add(const std::shared_ptr<BlobWatcher>& watcher) {
  const MutexLock lock(mutex_);
  std::erase_if(watchers_, [](const auto& weak) { return weak.expired(); });
  watchers_.push_back(watcher);
}

/// Of two changes that are told of at once both tell the later one, never the earlier one last.
void BlobDatabase::changed(const std::string& id) noexcept {
  std::vector<std::weak_ptr<BlobWatcher>> watchers;
  {
    const MutexLock lock(mutex_);
    watchers = watchers_;
  }
  platform::ThreadPool::runHere([&] {
    std::erase_if(watchers, [](const auto& weak) { return weak.expired(); });
    if (watchers.empty()) return;
    tellings_.sync([&] {
      const auto row = table_.row(id);
      if (!row) return;
      for (const auto& weak : watchers) {
        if (const auto watcher = weak.lock()) watcher->tell(stateFrom(*row));
      }
    });
  });
}

}  // namespace varo::detail
