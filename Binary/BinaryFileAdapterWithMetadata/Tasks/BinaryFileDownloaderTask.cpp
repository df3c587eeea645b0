#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryFileDownloaderTask.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkedFileDownloaderTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryListTask.h"

#include <memory>

namespace varo::binary {

BinaryFileDownloaderTask::BinaryFileDownloaderTask(const std::string& fileId) : VSTask(fileId) {
  setupSubtasks(fileId);
}

void BinaryFileDownloaderTask::setupSubtasks(const std::string& fileId) {
  const auto lookUp = std::make_shared<BinaryListTask>(/*invokeCallbackOnSuccess=*/false);
  const auto downloader = std::make_shared<ChunkedFileDownloaderTask>();
  addSubtask(lookUp);
  addSubtask(downloader);
  // Cannot be refused: both tasks were added just now.
  addDependencyBetween(lookUp, downloader, nullptr);
  _inputContext.set(keys::kFileId, fileId);
  downloader_ = downloader;
}

void BinaryFileDownloaderTask::execute() {
  // The look-up's response becomes input of the second step, but has no say in where the caller's
  // credentials go.
  if (const auto downloader = downloader_.lock()) downloader->setCallersEntries(inputContext());
  VSTask::execute();
}

}  // namespace varo::binary
