#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Arguments/BlobRecord.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Run/Session.h"

#include <fmt/format.h>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(Record that a record's binary column is to be deleted. The application's sync engine
deletes it on the service with its next session.

Usage: varobinary [GLOBAL] blob delete --db NAME --table T --column C --key K=V...
           [--before-sync]

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the record
  --column C              binary column; the table has a column blobref_C
  --key K=V [K=V]...      primary key of the record; may be repeated
  --before-sync           remove the file on this machine now, not after that session

Examples:
  varobinary --home try blob delete --db staff.db --table employees --column photo --key id=3 \
      --before-sync
)";

struct BlobDeleteOptions {
  BlobRecord record;
  /// Remove the file now, and not when the sync engine has deleted the blob on the service.
  bool beforeSync = false;
};

constexpr char kRecorded[] = "recorded";
constexpr char kFileRemoved[] = "fileRemoved";

std::string describe(const BlobRecord& record, const Dictionary& result) {
  return fmt::format("Marked the {} as deleted{}\n", record.name(),
                     result[kFileRemoved].boolValue() ? " and removed its file" : "");
}

/// Under the compatible policy a deletion that was not recorded need not have an error.
ErrorPtr notRecorded() {
  return platform::Error::make(binary::kDeleteBinaryErrorDomain,
                               binary::kCodeInvalidStateForBinaryOperation,
                               "the deletion was not recorded: the file could not be removed");
}

void declare(CommandArguments& arguments, BlobDeleteOptions& options) {
  declareBlobRecord(arguments, options.record);
  arguments.flag("--before-sync", options.beforeSync);
}

int run(Session& session, const BlobDeleteOptions& options) {
  const BlobRecord& record = options.record;
  Dictionary deletion = session.options().options;
  if (options.beforeSync) deletion.set(binary::keys::kShouldDeleteBeforeSyncSession, true);
  const auto start = [&](const Session::Blocks& blocks) {
    binary::BinaryDataManager::sharedInstance()->deleteBinaryObjectForPrimaryKeys(
        record.keys, record.database, record.table, record.column, deletion,
        blocks.guarded([blocks](const std::optional<std::string>& id, bool recorded,
                                bool fileRemoved, const ErrorPtr& error) {
          if (error != nullptr) return blocks.onFailure(error);
          if (!recorded) return blocks.onFailure(notRecorded());
          blocks.onSuccess(Dictionary{{"id", id ? Value(*id) : Value()},
                                      {kRecorded, recorded},
                                      {kFileRemoved, fileRemoved}});
        }));
  };
  return session.finish(
      session.await(start),
      {.success = [&](const Dictionary& result) { return describe(record, result); },
       .failure = [&](const Value& failure) { return describeBlobFailure(record, failure); },
       .about = {record.name()}});
}

}  // namespace

/// Records the deletion of a record's binary column for the sync engine.
Command makeBlobDeleteCommand() {
  return {.name = "blob delete",
          .arguments = {},
          .summary = "record that the column is to be deleted",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
