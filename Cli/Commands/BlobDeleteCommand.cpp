#include "Cli/Commands/BlobDeleteCommand.h"

#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Run/Session.h"

#include <fmt/format.h>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

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

}  // namespace

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
       .failure = [&](const Value& failure) { return describeBlobFailure(record, failure); }});
}

}  // namespace varo::cli
