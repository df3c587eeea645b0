#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Arguments/BlobRecord.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/File.h"

#include <fmt/format.h>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(Print where the file of a record's binary column is.

Usage: varobinary [GLOBAL] blob path --db NAME --table T --column C --key K=V...

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the record
  --column C              binary column; the table has a column blobref_C
  --key K=V [K=V]...      primary key of the record; may be repeated

Fails while the file is not complete.

Examples:
  varobinary --home try blob path --db staff.db --table employees --column photo --key id=3
)";

struct BlobPathOptions {
  BlobRecord record;
};

std::string pathIn(const Dictionary& result) { return result[binary::kFilePath].textValue(); }

void declare(CommandArguments& arguments, BlobPathOptions& options) {
  declareBlobRecord(arguments, options.record);
}

int run(Session& session, const BlobPathOptions& options) {
  const BlobRecord& record = options.record;
  const auto start = [&](const Session::Blocks& blocks) {
    binary::BinaryDataManager::sharedInstance()->getBinaryDataFilePathForPrimaryKeys(
        record.keys, record.database, record.table, record.column,
        blocks.guarded([blocks, record](const platform::ErrorPtr& error,
                                        const std::optional<std::string>& path) {
          if (error != nullptr) return blocks.onFailure(error);
          blocks.onSuccess(Dictionary{{"id", record.blobId()},
                                      {binary::kFilePath, path ? Value(*path) : Value()}});
        }));
  };
  const Outcome outcome = session.await(start);
  // The table may name a file that somebody has removed.
  if (outcome.kind == Outcome::Kind::kSuccess &&
      platform::fileKindAt(pathIn(outcome.value.dictionaryValue())) ==
          platform::FileKind::kNothing) {
    session.output().warning("the file is not there any more");
  }
  return session.finish(
      outcome,
      {.success = [](const Dictionary& result) { return printable(pathIn(result)) + "\n"; },
       .failure = [&](const Value& failure) { return describeBlobFailure(record, failure); },
       .about = {record.name()}});
}

}  // namespace

/// Prints where the file of a record's binary column is.
Command makeBlobPathCommand() {
  return {.name = "blob path",
          .arguments = {},
          .summary = "print where the file is",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
