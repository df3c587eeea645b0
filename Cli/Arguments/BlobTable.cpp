#include "Cli/Arguments/BlobTable.h"

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Terminal/TerminalText.h"
#include "Client/BlobStates.h"
#include "Client/FileRecords.h"
#include "Platform/Foundation/Array.h"

#include <fmt/format.h>

#include <map>
#include <utility>

namespace varo::cli {

using binary::BlobStoreTable;
using binary::SQLiteUtil;
using platform::Dictionary;
using platform::Result;
using platform::Value;

namespace {

/// What SQLite has in place of `PRAGMA table_info`.
constexpr char kTableInfo[] = "pragma_table_info";
constexpr char kRowId[] = "rowid";

/// The rows of the table of blobs by their ids.
Result<std::map<std::string, Dictionary>> blobRows(const std::string& path) {
  const auto rows = SQLiteUtil::queryRows(path, binary::kVaroSyncBlobStoreMangager, {});
  if (!rows) return rows.error();
  std::map<std::string, Dictionary> byId;
  for (const Value& row : *rows) {
    const Dictionary values = row.dictionaryValue();
    byId.emplace(values[binary::blobs::kId].textValue(), values);
  }
  return byId;
}

}  // namespace

std::string BlobTable::name() const { return printable(fmt::format("{} of {}", column, table)); }

Result<BlobColumn> BlobTable::blobColumn() const {
  const std::string path = SQLiteUtil::pathOfDatabase(database);
  const auto columns = SQLiteUtil::queryRows(path, kTableInfo, {{"arg", table}}, {"name", "pk"});
  if (!columns) return columns.error();
  BlobColumn found{.table = table, .column = column, .keyColumns = {}};
  for (const Value& row : *columns) {
    const Dictionary values = row.dictionaryValue();
    if (values["pk"].integerValue() > 0) found.keyColumns.push_back(values["name"].textValue());
  }
  if (found.keyColumns.empty()) found.keyColumns.emplace_back(kRowId);
  return found;
}

Result<std::vector<BlobState>> BlobTable::states() const {
  auto found = blobColumn();
  if (!found) return found.error();
  const std::string path = SQLiteUtil::pathOfDatabase(database);
  std::vector<std::string> columns = found->keyColumns;
  columns.push_back(BlobStoreTable::linkColumn(column));
  const auto records = SQLiteUtil::queryRows(path, table, {}, columns);
  if (!records) return records.error();
  const auto rows = blobRows(path);
  if (!rows) return rows.error();
  std::vector<BlobState> states;
  for (const Value& record : *records) {
    const Dictionary values = record.dictionaryValue();
    BlobRef ref{.table = table, .column = column, .keys = {}};
    for (const std::string& key : found->keyColumns) {
      if (auto value = detail::scalarFrom(values[key])) ref.keys.emplace(key, *std::move(value));
    }
    const std::string link = BlobStoreTable::linkIn(values, column).value_or("");
    const auto row = rows->find(link);
    states.push_back(row == rows->end() ? detail::stateWithoutRow(std::move(ref))
                                        : detail::stateFrom(row->second, std::move(ref)));
  }
  return states;
}

void declareBlobTable(CommandArguments& arguments, BlobTable& table) {
  arguments.text("--db", table.database, Presence::kRequired);
  arguments.text("--table", table.table, Presence::kRequired);
  arguments.text("--column", table.column, Presence::kRequired);
}

Dictionary keysOf(const BlobRef& blob) { return detail::dictionaryFrom(blob.keys); }

std::string pairsOf(const BlobRef& blob) {
  std::string text;
  for (const auto& entry : keysOf(blob)) {
    text += fmt::format("{}{}={}", text.empty() ? "" : " ", entry.key, entry.value.textValue());
  }
  return printable(text);
}

}  // namespace varo::cli
