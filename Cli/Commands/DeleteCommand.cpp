#include "Cli/Commands/DeleteCommand.h"

#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;

namespace {

std::string describeFilesWhere(const Dictionary& where) {
  std::string text = "Deleted the files with\n";
  for (const platform::DictionaryEntry& entry : where) {
    text += fmt::format("  {} = {}\n", printable(entry.key), printable(entry.value.textValue()));
  }
  return text;
}

}  // namespace

int run(Session& session, const DeleteOptions& options) {
  const GlobalOptions& global = session.options();
  return session.perform(
      "Deleting" + (options.fileId ? " " + *options.fileId : ""),
      [&](const Session::Blocks& blocks) {
        if (options.fileId) {
          BinaryFileStorageInterface::deleteWithUrl(options.url, options.fileId, {}, global.headers,
                                                    blocks.onSuccess, blocks.onFailure,
                                                    global.options);
        } else {
          BinaryFileStorageInterface::deleteByCriteria(options.url, options.where, global.headers,
                                                       blocks.onSuccess, blocks.onFailure,
                                                       global.options);
        }
      },
      [&](const Dictionary&) {
        return options.fileId ? fmt::format("Deleted {}\n", printable(*options.fileId))
                              : describeFilesWhere(options.where);
      });
}

int run(Session& session, const AbortOptions& options) {
  const GlobalOptions& global = session.options();
  return session.perform(
      "Giving up " + options.fileId,
      [&](const Session::Blocks& blocks) {
        BinaryFileStorageInterface::abortWithUrl(options.url, options.fileId, {}, global.headers,
                                                 blocks.onSuccess, blocks.onFailure,
                                                 global.options);
      },
      [&](const Dictionary&) {
        return fmt::format("Gave up the upload of {}\n", printable(options.fileId));
      });
}

}  // namespace varo::cli
