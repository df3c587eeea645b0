#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryFileUploaderTask.h"

#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkedFileUploaderTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/FileMetadataCreatorTask.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/UploadCommiterTask.h"

#include <memory>
#include <utility>

namespace varo::binary {

BinaryFileUploaderTask::BinaryFileUploaderTask(std::shared_ptr<void> place)
    : place_(std::move(place)) {
  setupSubtasks();
}

void BinaryFileUploaderTask::setupSubtasks() {
  const auto metadataCreator = std::make_shared<FileMetadataCreatorTask>();
  const auto chunkLoop = std::make_shared<ChunkedFileUploaderTask>();
  const auto committer = std::make_shared<UploadCommiterTask>();
  addSubtask(metadataCreator);
  addSubtask(chunkLoop);
  addSubtask(committer);
  // Neither can be refused: the tasks were added just now and the order closes no circle.
  addDependencyBetween(metadataCreator, chunkLoop, nullptr);
  addDependencyBetween(chunkLoop, committer, nullptr);
}

}  // namespace varo::binary
