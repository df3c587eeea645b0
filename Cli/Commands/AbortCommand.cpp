#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

#include <string>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Give up an upload: delete what the service has of a file that was not committed.

Usage: varobinary [GLOBAL] abort URL FILE_ID

  URL                     base URL of the object service
  FILE_ID                 id of the file, as the service gave it to the upload

To stop an upload that is running, interrupt it (Ctrl-C). The service then keeps a record that
no list shows until it is given up here. As with 'delete', the service may take a while.

Examples:
  varobinary abort $URL 5f2b90c1
)";

struct AbortOptions {
  std::string url;
  std::string fileId;
};

void declare(CommandArguments& arguments, AbortOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.text("FILE_ID", options.fileId, Presence::kRequired);
}

int run(Session& session, const AbortOptions& options) {
  const GlobalOptions& global = session.options();
  return session.perform(
      "Giving up " + options.fileId,
      [&](const Session::Blocks& blocks) {
        BinaryFileStorageInterface::abortWithUrl(options.url, options.fileId, {}, global.headers,
                                                 blocks.onSuccess, blocks.onFailure,
                                                 session.operationOptions());
      },
      {.success =
           [&](const Dictionary&) {
             return fmt::format("Gave up the upload of {}\n", printable(options.fileId));
           },
       .about = {options.fileId, options.url}});
}

}  // namespace

/// Gives up an upload that was not committed.
Command makeAbortCommand() {
  return {.name = "abort",
          .arguments = "URL FILE_ID",
          .summary = "give up an upload that was not finished",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
