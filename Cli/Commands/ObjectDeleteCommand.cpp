#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Commands/StoreRequest.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

#include <string>
#include <utility>

namespace varo::cli {

using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Remove an object from a store. One that is not there is a success, too: stores do not say.

Usage: varobinary [GLOBAL] object delete ADDRESS [--endpoint URL] [--region R]
           [--access-key K] [--secret-key-file FILE]

{}
Examples:
  varobinary object delete s3://photos/ann.jpg --endpoint https://s3.example.com
)";

void declare(CommandArguments& arguments, StoreArguments& store) {
  declareStore(arguments, store);
  arguments.check([&store] { completeStore("object delete", store, NeedsKey::kYes); });
}

int run(Session& session, const StoreArguments& store) {
  const auto opened = openStore(session, store);
  if (!opened) return session.finish({Outcome::Kind::kFailure, errorOf(opened.error())});
  return session.finish(
      awaitTransfer<ObjectKey>(
          session, {}, [&] { return opened->remove(ObjectKey(store.address.key)); },
          [](const ObjectKey& key) {
            return Dictionary{{"id", key.text()}, {"key", key.text()}};
          }),
      {.success =
           [&](const Dictionary&) {
             return fmt::format("Deleted {}\n", printable(store.address.text()));
           },
       .failure = describeStoreFailure,
       .about = {store.address.text(), store.endpoint}});
}

}  // namespace

/// Removes one object from a store.
Command makeObjectDeleteCommand() {
  return {.name = "object delete",
          .arguments = {},
          .summary = "remove an object from a store",
          .help = fmt::format(kHelp, kStoreHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
