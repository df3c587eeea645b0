#include "Cli/Demo/DemoDownload.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"

namespace varo::cli {

using platform::Dictionary;

Outcome downloadFile(DemoStage& stage, const std::string& id, const Dictionary& headers,
                     const Dictionary& options) {
  const Dictionary parameters{{binary::keys::kHeaders, headers},
                              {binary::keys::kMetadata, Dictionary{{binary::keys::kFileId, id}}}};
  return stage.operate("Downloading", [&](const Session::Blocks& blocks) {
    binary::BinaryFileStorageInterface::downloadWithURL(
        stage.url(), parameters, blocks.onSuccess, blocks.onFailure, blocks.onProgress, options);
  });
}

}  // namespace varo::cli
