#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <string>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Change the metadata of a file. Its bytes stay as they are.

Usage: varobinary [GLOBAL] update URL FILE_ID [--meta K=V]...

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --meta K=V [K=V]...     new metadata, as text; may be repeated

Examples:
  varobinary update $URL 5f2b90c1 --meta description='A summer evening' rating=5
)";

struct UpdateOptions {
  std::string url;
  std::string fileId;
  platform::Dictionary meta;
};

std::string describe(const UpdateOptions& options) {
  std::string text = fmt::format("Updated {}\n", printable(options.fileId));
  for (const auto& entry : options.meta) {
    text += fmt::format("  {} = {}\n", printable(entry.key), printable(entry.value.textValue()));
  }
  return text;
}

void declare(CommandArguments& arguments, UpdateOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.text("FILE_ID", options.fileId, Presence::kRequired);
  arguments.pairs("--meta", options.meta, {.keysAreUnique = false});
}

int run(Session& session, const UpdateOptions& options) {
  Dictionary metadata = options.meta;
  metadata.set(binary::keys::kFileId, options.fileId);
  const Dictionary parameters{{binary::keys::kHeaders, session.options().headers},
                              {binary::keys::kMetadata, metadata}};
  return session.perform("Updating " + options.fileId,
                         [&](const Session::Blocks& blocks) {
                           BinaryFileStorageInterface::updateWithUrl(
                               options.url, parameters, blocks.onSuccess, blocks.onFailure,
                               session.operationOptions());
                         },
                         {.success = [&](const Dictionary&) { return describe(options); },
                          .about = {options.fileId, options.url}});
}

}  // namespace

/// Changes the metadata of one file.
Command makeUpdateCommand() {
  return {.name = "update",
          .arguments = "URL FILE_ID",
          .summary = "change the metadata of a file",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
