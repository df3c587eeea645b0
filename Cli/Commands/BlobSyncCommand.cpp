#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/BlobTable.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Commands/BlobServiceConfig.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Run/SideBySide.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/UserDirectories.h"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;
namespace fs = std::filesystem;

namespace {

constexpr std::string_view kHelp =
    R"(Bring the binary column of all records of a table into files.

Usage: varobinary [GLOBAL] blob sync --db NAME --table T --column C --config FILE

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the records
  --column C              binary column; the table has a column blobref_C
  --config FILE           JSON object with the configuration of the downloads, as 'blob
                          download' takes it

The files are blobs/ID in the documents directory; as many at once are fetched as --parallel
says. What is there already is not fetched again, and what is to be deleted is left alone. A
blob that fails does not keep the others from coming, and the exit status is then 1. An
interrupt (Ctrl-C) stops all of them, and the same command goes on later with what has come,
also after a crash.

Examples:
  varobinary --home try blob sync --db staff.db --table employees --column photo \
      --config photo.json
)";

struct BlobSyncOptions {
  BlobTable table;
  /// The configuration of `blob download`.
  Dictionary config;
};

constexpr char kBlobs[] = "blobs";
constexpr char kKept[] = "kept";
constexpr char kSkipped[] = "skipped";
constexpr char kReason[] = "reason";

Outcome failed(platform::ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

/// The store with its directory of files, which is made.
varo::Outcome<BlobStore> openStore(const Session& session, const BlobSyncOptions& options) {
  const fs::path files = fs::path(platform::UserDirectories::current()->documents()) / kBlobs;
  std::error_code none;
  fs::create_directories(files, none);  // where it cannot be made, the store tells
  return BlobStore::open(binary::SQLiteUtil::pathOfDatabase(options.table.database), files,
                         blobService(session.options(), options.config));
}

Dictionary fetchedResult(const fs::path& file) {
  return {{binary::kFilePath, file.string()}, {kKept, false}};
}

/// The outcome of a blob for which there is nothing to do; none where it is to be fetched.
std::optional<Outcome> withoutFetch(const BlobStore& store, const BlobRef& blob) {
  const auto state = store.state(blob);
  if (!state) return failed(errorOf(state.error()));
  if (state->status == BlobStatus::kDeletionWaits || state->status == BlobStatus::kBeingDeleted) {
    return Outcome{Outcome::Kind::kSuccess, Dictionary{{kSkipped, true}, {kReason, state->reason}}};
  }
  std::error_code none;
  if (!state->hasFile() || !fs::exists(*state->path, none)) return std::nullopt;
  return Outcome{Outcome::Kind::kSuccess,
                 Dictionary{{binary::kFilePath, state->path->string()}, {kKept, true}}};
}

std::string describeFetched(const Item& item, const Dictionary& result) {
  if (!result.contains(kKept) || result[kKept].boolValue()) return {};
  const std::string path = result[binary::kFilePath].textValue();
  std::error_code unknown;
  const std::uintmax_t size = fs::file_size(path, unknown);
  return fmt::format("{}  {}{}\n", item.name, printable(path),
                     unknown ? "" : fmt::format(" ({})", formatBytes(size)));
}

std::string describe(const BatchEnd& end) {
  std::size_t kept = 0;
  std::size_t skipped = 0;
  for (const Dictionary& result : end.results) {
    kept += result[kKept].boolValue() ? 1 : 0;
    skipped += result.contains(kSkipped) ? 1 : 0;
  }
  return fmt::format("{} fetched, {} there already{}\n", end.results.size() - kept - skipped, kept,
                     skipped == 0 ? "" : fmt::format(", {} to be deleted", skipped));
}

int sync(Session& session, const BlobTable& table, const BlobStore& store,
         const std::vector<BlobRef>& blobs) {
  Batch batch;
  for (const BlobRef& blob : blobs) {
    batch.items.push_back(
        {batch.items.size(), pairsOf(blob),
         Dictionary{{"table", blob.table}, {"column", blob.column}, {"keys", keysOf(blob)}}});
  }
  batch.start = [&](const Item& item, const ItemReports& reports) {
    const BlobRef& blob = blobs[item.number];
    if (auto outcome = withoutFetch(store, blob)) return endedWith(*std::move(outcome));
    return hold(store.fetch(blob), reports, &fetchedResult);
  };
  batch.success = describeFetched;
  batch.failure = [](const Item&, const Value& failure) {
    return describeFailureOf(Topic::kBlob, failure);
  };
  const BatchEnd end = runSideBySide(session, batch);
  return session.finish(outcomeOf(end, kBlobs, blobs.size(), kBlobs, true),
                        {.success = [&](const Dictionary&) { return describe(end); },
                         .failure = describeWithoutHint,
                         .about = {table.name()}});
}

void declare(CommandArguments& arguments, BlobSyncOptions& options) {
  declareBlobTable(arguments, options.table);
  arguments.parsed("--config", options.config, readBlobServiceConfig, Presence::kRequired);
}

int run(Session& session, const BlobSyncOptions& options) {
  const Wording wording{.failure =
                            [&](const Value& failure) {
                              return describeBlobFailure(options.table.asRecord(), failure);
                            },
                        .about = {options.table.name()}};
  const auto column = options.table.blobColumn();
  if (!column) return session.finish(failed(column.error()), wording);
  const auto store = openStore(session, options);
  if (!store) return session.finish(failed(errorOf(store.error())), wording);
  const auto blobs = store->blobsOf(*column);
  if (!blobs) return session.finish(failed(errorOf(blobs.error())), wording);
  return sync(session, options.table, *store, *blobs);
}

}  // namespace

/// Brings the binary column of all records of a table into files.
Command makeBlobSyncCommand() {
  return {.name = "blob sync",
          .arguments = {},
          .summary = "bring the column of all records into files",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
