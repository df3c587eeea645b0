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
    R"(Say what a store knows about an object: size, entity tag, time, type.

Usage: varobinary [GLOBAL] object head ADDRESS [--endpoint URL] [--region R]
           [--access-key K] [--secret-key-file FILE]

{}
Examples, in a shell where 'varobinary sandbox --store-port 8081' runs in another:
  export VARO_ENDPOINT=http://127.0.0.1:8081
  export VARO_ACCESS_KEY=sandbox VARO_SECRET_KEY=sandbox-secret-key
  varobinary object head s3://photos/ann.jpg
)";

std::string describe(const Dictionary& result) {
  std::string text;
  for (const auto& entry : result) {
    if (entry.key == "id") continue;
    text += fmt::format("{:<13}{}\n", entry.key, printable(entry.value.textValue()));
  }
  return text;
}

void declare(CommandArguments& arguments, StoreArguments& store) {
  declareStore(arguments, store);
  arguments.check([&store] { completeStore("object head", store, NeedsKey::kYes); });
}

int run(Session& session, const StoreArguments& store) {
  const auto opened = openStore(session, store);
  if (!opened) return session.finish({Outcome::Kind::kFailure, errorOf(opened.error())});
  return session.finish(
      awaitTransfer<ObjectInfo>(
          session, {}, [&] { return opened->head(ObjectKey(store.address.key)); }, &resultOf),
      {.success = describe,
       .failure = describeStoreFailure,
       .about = {store.address.text(), store.endpoint}});
}

}  // namespace

/// Asks a store what it knows of one object.
Command makeObjectHeadCommand() {
  return {.name = "object head",
          .arguments = {},
          .summary = "say what a store knows about an object",
          .help = fmt::format(kHelp, kStoreHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
