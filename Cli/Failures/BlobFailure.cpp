#include "Cli/Failures/BlobFailure.h"

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Failures/StorageFailure.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/UserDirectories.h"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>

namespace varo::cli {

using binary::SQLiteUtil;
using platform::Dictionary;
using platform::Value;

namespace {

struct Gap {
  std::string message;
  std::string hint;
};

/// Why a record cannot be found, or nothing where it can.
std::optional<Gap> findGap(const BlobRecord& record) {
  const std::string path = SQLiteUtil::getDBPath(record.database);
  if (path.empty()) {
    return Gap{fmt::format("'{}' leads out of {}/WEBSQLDIRECTORY", record.database,
                           platform::UserDirectories::current()->library()),
               "--db is the name of a file in that directory."};
  }
  std::error_code failed;
  if (!std::filesystem::is_regular_file(path, failed)) {
    return Gap{fmt::format("there is no database {}", path),
               "--db is the name of a file in that directory; --home DIR chooses another one, "
               "DIR/Library/WEBSQLDIRECTORY."};
  }
  const auto rows = SQLiteUtil::queryDataForDatabase(path, record.table, record.keys);
  if (!rows) {
    return Gap{
        fmt::format("the table '{}' of {} cannot be read", record.table, path),
        record.keys.empty()
            ? "Check --table; --log-level error shows what is wrong."
            : "Check --table and the names in --key; --log-level error shows what is wrong."};
  }
  // A whole table may be empty.
  if (rows->empty() && record.keys.empty()) return std::nullopt;
  if (rows->empty()) {
    return Gap{
        fmt::format("no record in the table '{}' of {} has {}", record.table, path, record.pairs()),
        "Check --key."};
  }
  const std::string link = binary::BlobStoreTable::linkColumn(record.column);
  if (!(*rows)[0].dictionaryValue().contains(link)) {
    return Gap{fmt::format("the table '{}' of {} has no column '{}', which would link its records "
                           "to their blobs",
                           record.table, path, link),
               "Check --column."};
  }
  return std::nullopt;
}

/// What a blob in this state is, where that keeps it from being downloaded.
std::string_view meaningOf(std::int64_t state) {
  switch (state) {
    case binary::kFileAvailable:
      return "noted as downloaded, but its file is not there";
    case binary::kUploadAccepted:
    case binary::kUploadInProgress:
      return "being uploaded";
    case binary::kDeleteAccepted:
      return "marked as deleted";
    case binary::kDeleteInProgress:
      return "being deleted";
    default:
      return "in use";
  }
}

constexpr std::string_view kGoesOn = "What has arrived is kept: the same command resumes there.";

void addDownloadFailure(const Dictionary& details, FailureText& text) {
  const std::string misnomer = fmt::format("{}: ", binary::kUploadFailure);
  if (text.message.starts_with(misnomer)) text.message.erase(0, misnomer.size());
  if (!details.contains(binary::kPersistenceError)) {
    const std::string_view hint = hintFor(Topic::kBlob, text.domain, text.code);
    text.hint = hint.empty() ? hintFor(Topic::kBlob, binary::kDownloadTaskError,
                                       binary::kCodeDownloadTaskFailed)
                             : hint;
    return;
  }
  const Dictionary failure = details[binary::kPersistenceError].dictionaryValue();
  describeStorageFailure(failure, platform::UserDirectories::current()->documents(), text);
  text.hint += fmt::format(" {}", kGoesOn);
}

bool is(const platform::Error& error, std::string_view domain, std::int64_t code) {
  return error.domain() == domain && error.code() == code;
}

/// Whether the record, or its link to a blob, was not found.
bool isNotFound(const platform::Error& error) {
  return is(error, binary::kDownloadTaskErrorDomain, binary::kCodeBinaryRecordDoesNotExist) ||
         is(error, binary::kDeleteBinaryErrorDomain, binary::kCodeBinaryRecordDoesNotExist);
}

}  // namespace

FailureText describeBlobFailure(const BlobRecord& record, const Value& failure) {
  FailureText text = describeFailureOf(Topic::kBlob, failure);
  const platform::ErrorPtr error = failure.error();
  if (error == nullptr) return text;
  const bool isIncomplete =
      is(*error, binary::kDownloadTaskErrorDomain, binary::kCodeInvalidStateForBinaryOperation);
  const bool mayLack = isNotFound(*error) || isIncomplete || record.keys.empty();
  if (error->domain() == binary::kDownloadTaskError) {
    addDownloadFailure(error->userInfo(), text);
  } else if (auto gap = mayLack ? findGap(record) : std::nullopt) {
    text.message = std::move(gap->message);
    text.hint = std::move(gap->hint);
  } else if (is(*error, binary::kTaskCreationErrorDomain,
                binary::kCodeInvalidStateForDownloadTaskCreation)) {
    const std::int64_t state = record.state().value_or(0);
    text.message = fmt::format("the {} cannot be downloaded: it is {} (state {})", record.name(),
                               meaningOf(state), state);
  } else {
    if (isIncomplete) {
      text.message = fmt::format("there is no complete file of the {}", record.name());
    }
    // The command knows more of what to do about it than its cause does.
    const auto hint = hintFor(Topic::kBlob, error->domain(), error->code());
    if (!hint.empty()) text.hint = hint;
  }
  return text;
}

}  // namespace varo::cli
