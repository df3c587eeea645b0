#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Commands/StoreRequest.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/Table.h"
#include "Platform/Foundation/Array.h"

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varo::cli {

using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(List the objects of a bucket, or those whose keys have a certain beginning.

Usage: varobinary [GLOBAL] object list ADDRESS [--delimiter D] [--endpoint URL]
           [--region R] [--access-key K] [--secret-key-file FILE]

{}  --delimiter D           list what keys have in common up to D, usually "/", once, as a
                          folder would

ADDRESS is s3://BUCKET, or s3://BUCKET/BEGINNING.

Examples:
  varobinary object list s3://photos --endpoint https://s3.example.com
  varobinary object list s3://photos/2024/ --delimiter /
)";

struct ObjectListOptions {
  StoreArguments store;
  std::string delimiter;
};

constexpr char kObjects[] = "objects";

std::string describe(const Dictionary& result) {
  const platform::Array* objects = result[kObjects].array();
  if (objects == nullptr || objects->empty()) return "No objects.\n";
  // Keys are there to be copied: they are never cut.
  Table table({{"KEY", Table::Align::kLeft, false},
               {"SIZE", Table::Align::kRight, false},
               {"MODIFIED", Table::Align::kLeft, false}});
  std::uint64_t total = 0;
  for (const platform::Value& object : *objects) {
    const Dictionary entry = object.dictionaryValue();
    const auto size = static_cast<std::uint64_t>(entry["size"].integerValue());
    total += size;
    table.addRow({entry["key"].textValue(), entry.contains("size") ? formatBytes(size) : "",
                  entry["modified"].textValue()});
  }
  return fmt::format("{}\n{} object{}, {}\n", table.text(std::nullopt), objects->size(),
                     objects->size() == 1 ? "" : "s", formatBytes(total));
}

Dictionary listed(const StoreAddress& address, const std::vector<ObjectInfo>& found) {
  platform::Array objects;
  for (const ObjectInfo& info : found) objects.append(resultOf(info));
  return {{"id", address.text()}, {kObjects, objects}};
}

FailureText describeListFailure(const platform::Value& failure) {
  FailureText text = describeStoreFailure(failure);
  if (text.facts.kind == nameOf(Kind::kNotFound)) {
    text.hint = "Check the name of the bucket, and that --endpoint is the address of a store.";
  }
  return text;
}

void declare(CommandArguments& arguments, ObjectListOptions& options) {
  declareStore(arguments, options.store);
  arguments.text("--delimiter", options.delimiter);
  arguments.check([&options] { completeStore("object list", options.store, NeedsKey::kNo); });
}

int run(Session& session, const ObjectListOptions& options) {
  const StoreArguments& store = options.store;
  session.output().begin("Listing");
  const auto opened = openStore(session, store);
  if (!opened) return session.finish({Outcome::Kind::kFailure, errorOf(opened.error())});
  return session.finish(
      awaitTransfer<std::vector<ObjectInfo>>(
          session, {},
          [&] {
            return opened->list({.prefix = store.address.key, .delimiter = options.delimiter});
          },
          [&](const std::vector<ObjectInfo>& found) { return listed(store.address, found); }),
      {.success = describe,
       .failure = describeListFailure,
       .about = {store.address.text(), store.endpoint}});
}

}  // namespace

/// Lists the objects of a bucket.
Command makeObjectListCommand() {
  return {.name = "object list",
          .arguments = {},
          .summary = "list the objects of a bucket",
          .help = fmt::format(kHelp, kStoreHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
