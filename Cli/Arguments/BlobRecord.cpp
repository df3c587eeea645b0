#include "Cli/Arguments/BlobRecord.h"

#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

namespace varo::cli {

using binary::BlobStoreTable;
using platform::Value;

namespace {

/// For reading alone, to which the policy makes no difference.
BlobStoreTable blobsOf(const std::string& database) {
  return {database, binary::TransferPolicy::kSafe};
}

}  // namespace

std::string BlobRecord::name() const {
  return printable(fmt::format("{} of {} {}", column, table, pairs()));
}

std::string BlobRecord::pairs() const {
  std::string text;
  for (const auto& entry : keys) {
    text += fmt::format("{}{}={}", text.empty() ? "" : " ", entry.key, entry.value.textValue());
  }
  return text;
}

Value BlobRecord::blobId() const {
  const auto record = blobsOf(database).record(table, keys);
  const auto link = record ? BlobStoreTable::linkIn(*record, column) : std::nullopt;
  return !link || link->empty() || *link == binary::blobs::kNull ? Value() : Value(*link);
}

std::optional<std::int64_t> BlobRecord::state() const {
  const Value id = blobId();
  const auto row = id.isMissing() ? std::nullopt : blobsOf(database).row(id.textValue());
  if (!row) return std::nullopt;
  return (*row)[binary::blobs::kState].integerValue();
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
