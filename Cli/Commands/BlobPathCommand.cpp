#include "Cli/Commands/BlobPathCommand.h"

#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/File.h"

#include <fmt/format.h>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

std::string pathIn(const Dictionary& result) { return result[binary::kFilePath].textValue(); }

}  // namespace

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
    session.output().note("warning: the file is not there any more");
  }
  return session.finish(
      outcome,
      {.success = [](const Dictionary& result) { return printable(pathIn(result)) + "\n"; },
       .failure = [&](const Value& failure) { return describeBlobFailure(record, failure); }});
}

}  // namespace varo::cli
