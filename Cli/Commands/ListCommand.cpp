#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/Table.h"
#include "Cli/Terminal/Terminal.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(List the files of an object service.

Usage: varobinary [GLOBAL] list URL [--criteria EXPR]

  URL                     base URL of the object service
  --criteria EXPR         list only what matches: comparisons "key eq 'value'", joined
                          with " and " (default: all files)

Prints a table and a total. On a terminal long values are shortened to its width;
anywhere else they are printed in full. With --json the line "success" has the records as
the service sent them.

Examples:
  varobinary list http://127.0.0.1:8080/services/data/v1/storage
  varobinary list $URL --criteria "file_namespace eq 'photos'"
  varobinary --json list $URL | jq -r '.result.records[].file_id'
)";

struct ListOptions {
  std::string url;
  /// A "$filter" expression; empty for all files.
  std::string criteria;
};

constexpr std::string_view kFileSize = "file_size";

/// What most back ends have, in the order in which people look for it.
constexpr std::string_view kFirstColumns[] = {binary::keys::kFileId, binary::keys::kFileName,
                                              kFileSize, binary::keys::kFileNamespace};
/// Of use to programs, or secret.
constexpr std::string_view kNotShown[] = {binary::keys::kDownloadTemplate,
                                          binary::keys::kUploadTemplate, binary::keys::kSecurityKey,
                                          binary::keys::kCommitProperties};
/// More columns than this are no table for people; --json has everything.
constexpr std::size_t kMostColumns = 8;

template <typename Range>
bool holds(const Range& range, std::string_view key) {
  return std::find(std::begin(range), std::end(range), key) != std::end(range);
}

bool isSimple(const Value& value) {
  return value.isText() || value.isInteger() || value.largeInteger() != nullptr || value.isReal() ||
         value.isBool();
}

/// The keys to show: the well-known ones that occur, then others in the order of their appearance.
std::vector<std::string> columnKeys(const std::vector<Dictionary>& records) {
  std::set<std::string, std::less<>> present;
  std::vector<std::string> others;
  for (const Dictionary& record : records) {
    for (const auto& entry : record) {
      if (!isSimple(entry.value) || holds(kNotShown, entry.key)) continue;
      const bool isNew = present.insert(entry.key).second;
      if (isNew && !holds(kFirstColumns, entry.key)) others.push_back(entry.key);
    }
  }
  std::vector<std::string> keys;
  for (const std::string_view key : kFirstColumns) {
    if (present.contains(key)) keys.emplace_back(key);
  }
  keys.insert(keys.end(), others.begin(), others.end());
  keys.resize(std::min(keys.size(), kMostColumns));
  return keys;
}

std::string titleOf(std::string_view key) {
  std::string title(key);
  for (char& c : title) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c == '_') c = ' ';
  }
  return title;
}

std::uint64_t sizeIn(const Dictionary& record) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(0, record[kFileSize].integerValue()));
}

std::string cellText(const Dictionary& record, const std::string& key) {
  const Value& value = record[key];
  if (key == kFileSize && value.isPresent()) return formatBytes(sizeIn(record));
  return isSimple(value) ? value.textValue() : std::string();
}

std::vector<Dictionary> recordsIn(const Dictionary& result) {
  std::vector<Dictionary> records;
  const Value& found = result[binary::keys::kRecords];
  if (!found.isArray()) return records;
  for (const Value& value : *found.array()) {
    if (value.isDictionary()) records.push_back(*value.dictionary());
  }
  return records;
}

Table tableOf(const std::vector<Dictionary>& records, const std::vector<std::string>& keys) {
  std::vector<Table::Column> columns;
  columns.reserve(keys.size());
  for (const std::string& key : keys) {
    const bool isSize = key == kFileSize;
    // A file's id is there to be copied: it is never cut.
    columns.push_back({titleOf(key), isSize ? Table::Align::kRight : Table::Align::kLeft,
                       !isSize && key != binary::keys::kFileId});
  }
  Table table(std::move(columns));
  for (const Dictionary& record : records) {
    std::vector<std::string> cells;
    cells.reserve(keys.size());
    for (const std::string& key : keys) cells.push_back(cellText(record, key));
    table.addRow(std::move(cells));
  }
  return table;
}

/// The table with as many of the columns beyond the well-known ones as the width has room for.
Table tableFitting(const std::vector<Dictionary>& records, std::optional<std::size_t> width) {
  std::vector<std::string> keys = columnKeys(records);
  Table table = tableOf(records, keys);
  while (width && table.fullWidth() > *width && !holds(kFirstColumns, keys.back())) {
    keys.pop_back();
    table = tableOf(records, keys);
  }
  return table;
}

/// The records of a list result as a table with a total below; `width` limits its columns.
std::string describeFiles(const Dictionary& result, std::optional<std::size_t> width) {
  const std::vector<Dictionary> records = recordsIn(result);
  if (records.empty()) return "No files.\n";
  std::uint64_t total = 0;
  for (const Dictionary& record : records) total += sizeIn(record);
  return fmt::format("{}\n{} file{}, {}\n", tableFitting(records, width).text(width),
                     records.size(), records.size() == 1 ? "" : "s", formatBytes(total));
}

void declare(CommandArguments& arguments, ListOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.text("--criteria", options.criteria);
}

int run(Session& session, const ListOptions& options) {
  const std::optional<std::string> criteria =
      options.criteria.empty() ? std::nullopt : std::optional(options.criteria);
  return session.perform(
      "Listing",
      [&](const Session::Blocks& blocks) {
        BinaryFileStorageInterface::getFilesWithUrl(options.url, criteria,
                                                    session.options().headers, blocks.onSuccess,
                                                    blocks.onFailure, session.operationOptions());
      },
      {.success =
           [](const Dictionary& result) {
             return describeFiles(result, terminal::width(terminal::Stream::kOutput));
           },
       .about = {options.url}});
}

}  // namespace

/// Lists the files of an object service.
Command makeListCommand() {
  return {.name = "list",
          .arguments = "URL [--criteria EXPR]",
          .summary = "list the files of the service",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
