#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkedFileUploaderTask.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/ChunkUploaderTask.h"

#include <memory>

namespace varo::binary {

ChunkedFileUploaderTask::ChunkedFileUploaderTask(platform::ErrorPtr* error)
    : VSAbstractLoopingTask(std::make_shared<ChunkUploaderTask>(error), error) {}

bool ChunkedFileUploaderTask::shouldIterate(platform::TaskState subTaskState) {
  return VSAbstractLoopingTask::shouldIterate(subTaskState) &&
         !_outputContext.get(keys::kIsLastChunk).boolValue();
}

void ChunkedFileUploaderTask::transformInputContextForNextIteration() {
  _inputContext.set(keys::kBytesOffset, _outputContext.get(keys::kBytesOffset));
}

bool ChunkedFileUploaderTask::treatErrorAsSuccess() { return false; }

}  // namespace varo::binary
