#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingSchedule.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <optional>
#include <string>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Delete a file, or all files with certain metadata.

Usage: varobinary [GLOBAL] delete URL FILE_ID
       varobinary [GLOBAL] delete URL --where K=V [--where K=V]...

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --where K=V [K=V]...    delete the files whose metadata hold all these values; may be
                          repeated. 'list --criteria' shows beforehand which ones they are

A service may accept a delete for later. It is then asked up to {} times, with growing
pauses of {} seconds at most together, whether it is done; each time that it is not, a line
on standard error says so. If it still works after that, the delete counts as failed,
although the service may finish it.

Examples:
  varobinary delete $URL 5f2b90c1
  varobinary delete $URL --where file_namespace=drafts owner=ann
)";

struct DeleteOptions {
  std::string url;
  /// Either this, or what the metadata of the files must hold.
  std::optional<std::string> fileId;
  platform::Dictionary where;
};

std::string describeFilesWhere(const Dictionary& where) {
  std::string text = "Deleted the files with\n";
  for (const platform::DictionaryEntry& entry : where) {
    text += fmt::format("  {} = {}\n", printable(entry.key), printable(entry.value.textValue()));
  }
  return text;
}

void declare(CommandArguments& arguments, DeleteOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.text("FILE_ID", options.fileId);
  arguments.pairs("--where", options.where);
  arguments.check([&options] {
    const bool byMetadata = !options.where.empty();
    if (!options.fileId && !byMetadata) {
      CommandArguments::reject("delete", "FILE_ID or --where is required");
    }
    if (options.fileId && byMetadata) {
      CommandArguments::reject("delete", "FILE_ID and --where exclude each other");
    }
  });
}

int run(Session& session, const DeleteOptions& options) {
  const GlobalOptions& global = session.options();
  return session.perform("Deleting" + (options.fileId ? " " + *options.fileId : ""),
                         [&](const Session::Blocks& blocks) {
                           if (options.fileId) {
                             BinaryFileStorageInterface::deleteWithUrl(
                                 options.url, options.fileId, {}, global.headers, blocks.onSuccess,
                                 blocks.onFailure, global.options);
                           } else {
                             BinaryFileStorageInterface::deleteByCriteria(
                                 options.url, options.where, global.headers, blocks.onSuccess,
                                 blocks.onFailure, global.options);
                           }
                         },
                         {.success =
                              [&](const Dictionary&) {
                                return options.fileId
                                           ? fmt::format("Deleted {}\n", printable(*options.fileId))
                                           : describeFilesWhere(options.where);
                              },
                          .about = {options.fileId.value_or(""), options.url}});
}

}  // namespace

/// Deletes one file, or those whose metadata match.
Command makeDeleteCommand() {
  return {.name = "delete",
          .arguments = "URL FILE_ID",
          .summary = "delete a file, or with --where several",
          .help = fmt::format(kHelp, binary::polling::kMaxStatusRequests,
                              binary::polling::kLongestWaits.count()),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
