#include "Cli/Commands/UpdateCommand.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;

namespace {

std::string describe(const UpdateOptions& options) {
  std::string text = fmt::format("Updated {}\n", printable(options.fileId));
  for (const platform::DictionaryEntry& entry : options.meta) {
    text += fmt::format("  {} = {}\n", printable(entry.key), printable(entry.value.textValue()));
  }
  return text;
}

}  // namespace

int run(Session& session, const UpdateOptions& options) {
  Dictionary metadata = options.meta;
  metadata.set(binary::keys::kFileId, options.fileId);
  const Dictionary parameters{{binary::keys::kHeaders, session.options().headers},
                              {binary::keys::kMetadata, metadata}};
  return session.perform(
      "Updating " + options.fileId,
      [&](const Session::Blocks& blocks) {
        BinaryFileStorageInterface::updateWithUrl(options.url, parameters, blocks.onSuccess,
                                                  blocks.onFailure, session.options().options);
      },
      [&](const Dictionary&) { return describe(options); });
}

}  // namespace varo::cli
