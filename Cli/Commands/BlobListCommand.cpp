#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Arguments/BlobTable.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/Table.h"
#include "Cli/Terminal/Terminal.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Array.h"

#include <fmt/format.h>

#include <map>
#include <string>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(List the blobs of a table's binary column, and in which state each of them is.

Usage: varobinary [GLOBAL] blob list --db NAME --table T --column C

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the records
  --column C              binary column; the table has a column blobref_C

The states are notFetched, fetching (or broken off), paused, failed, available,
waitsForUpload, uploading, deletionWaits, beingDeleted and other.

Examples:
  varobinary --home try blob list --db staff.db --table employees --column photo
  varobinary --home try --json blob list --db staff.db --table employees --column photo |
      jq -r '.result.blobs[] | select(.state == "failed") | .keys.id'
)";

constexpr char kBlobs[] = "blobs";
constexpr char kKeys[] = "keys";
constexpr char kState[] = "state";
constexpr char kReason[] = "reason";
constexpr char kSize[] = "size";

Dictionary resultOf(const BlobState& state) {
  Dictionary result{{kKeys, keysOf(state.ref)},
                    {"id", state.id.empty() ? Value() : Value(state.id.text())},
                    {kState, std::string(nameOf(state.status))},
                    {kReason, state.reason}};
  if (state.path) result.set(binary::kFilePath, state.path->string());
  if (state.size) result.set(kSize, static_cast<std::int64_t>(state.size->count));
  return result;
}

std::string describe(const Dictionary& result) {
  const platform::Array* blobs = result[kBlobs].array();
  if (blobs == nullptr || blobs->empty()) return "No records.\n";
  Table table({{"RECORD", Table::Align::kLeft, false},
               {"STATE", Table::Align::kLeft, false},
               {"SIZE", Table::Align::kRight, false},
               {"FILE"}});
  std::map<std::string, std::size_t> counts;
  for (const Value& blob : *blobs) {
    const Dictionary entry = blob.dictionaryValue();
    std::string keys;
    for (const auto& key : entry[kKeys].dictionaryValue()) {
      keys += fmt::format("{}{}={}", keys.empty() ? "" : " ", key.key, key.value.textValue());
    }
    const auto size = static_cast<std::uint64_t>(entry[kSize].integerValue());
    table.addRow({keys, entry[kState].textValue(), entry.contains(kSize) ? formatBytes(size) : "",
                  entry[binary::kFilePath].textValue()});
    ++counts[entry[kState].textValue()];
  }
  std::string total;
  for (const auto& [state, count] : counts) total += fmt::format(", {} {}", count, state);
  return fmt::format("{}\n{} record{}{}\n", table.text(terminal::width(terminal::Stream::kOutput)),
                     blobs->size(), blobs->size() == 1 ? "" : "s", total);
}

int run(Session& session, const BlobTable& table) {
  const auto states = table.states();
  if (!states) {
    return session.finish(
        {Outcome::Kind::kFailure, states.error()},
        {.failure =
             [&](const Value& failure) { return describeBlobFailure(table.asRecord(), failure); },
         .about = {table.name()}});
  }
  platform::Array blobs;
  for (const BlobState& state : *states) blobs.append(resultOf(state));
  return session.finish({Outcome::Kind::kSuccess, Dictionary{{kBlobs, blobs}}},
                        {.success = describe});
}

}  // namespace

/// Lists the blobs of a table's binary column with their states.
Command makeBlobListCommand() {
  return {.name = "blob list",
          .arguments = {},
          .summary = "list the blobs of a table and their states",
          .help = std::string(kHelp),
          .define = definition(&declareBlobTable, run)};
}

}  // namespace varo::cli
