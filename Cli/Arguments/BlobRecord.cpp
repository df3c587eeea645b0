#include "Cli/Arguments/BlobRecord.h"

#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Array.h"

#include <fmt/format.h>

#include <string_view>

namespace varo::cli {

using binary::SQLiteUtil;
using platform::Value;

namespace {

constexpr char kIdColumn[] = "id";
constexpr char kStateColumn[] = "state";
/// What a link says where there is no blob.
constexpr std::string_view kNoBlob = "NULL";

}  // namespace

std::string BlobRecord::name() const {
  return printable(fmt::format("{} of {} {}", column, table, pairs()));
}

std::string BlobRecord::pairs() const {
  std::string text;
  for (const platform::DictionaryEntry& entry : keys) {
    text += fmt::format("{}{}={}", text.empty() ? "" : " ", entry.key, entry.value.textValue());
  }
  return text;
}

Value BlobRecord::blobId() const {
  const auto rows = SQLiteUtil::queryDataForDatabase(SQLiteUtil::getDBPath(database), table, keys);
  if (!rows || rows->empty()) return {};
  const std::string link = (*rows)[0].dictionaryValue()[linkColumn()].textValue();
  return link.empty() || link == kNoBlob ? Value() : Value(link);
}

std::string BlobRecord::linkColumn() const {
  return fmt::format("{}_{}", binary::kBlobRef, column);
}

std::optional<std::int64_t> BlobRecord::state() const {
  const auto rows = SQLiteUtil::queryDataForDatabase(
      SQLiteUtil::getDBPath(database), binary::kVaroSyncBlobStoreMangager, {{kIdColumn, blobId()}});
  if (!rows || rows->empty()) return std::nullopt;
  return (*rows)[0].dictionaryValue()[kStateColumn].integerValue();
}

void declareBlobRecord(CommandArguments& arguments, BlobRecord& record) {
  arguments.text("--db", record.database, Presence::kRequired);
  arguments.text("--table", record.table, Presence::kRequired);
  arguments.text("--column", record.column, Presence::kRequired);
  arguments.pairs("--key", record.keys);
  arguments.check([&record] {
    if (record.keys.empty()) CommandArguments::reject("--key", "at least one pair is required");
  });
}

}  // namespace varo::cli
