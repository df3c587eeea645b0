#include "Binary/Binary/BinaryDataManager/DownloadAnswers.h"

#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/Utils/BlockCall.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"

namespace varo::binary {

using platform::Dictionary;
using platform::ErrorPtr;

void DownloadAnswers::answer(const DownloadBlock& block, const std::optional<std::string>& blobId,
                             const ErrorPtr& error, const std::optional<Dictionary>& result) {
  if (block) callBlock([&] { block(blobId, error, result); });
}

void DownloadAnswers::answerEnd(DownloadTask& task, const ErrorPtr& error,
                                const std::optional<Dictionary>& result) {
  // Both are taken first: what the one does may store another, which is for a later outcome.
  const DownloadBlock start = task.takeStartDownloadTaskCompletionBlock();
  const DownloadBlock resume = task.takeResumeDownloadTaskCompletionBlock();
  answer(start, task.name(), error, result);
  answer(resume, task.name(), error, result);
}

void DownloadAnswers::answerPause(DownloadTask& task, const ErrorPtr& error,
                                  const std::optional<Dictionary>& result) {
  answer(task.takePauseDownloadTaskCompletionBlock(), task.name(), error, result);
}

void DownloadAnswers::answerPauseAfterEnd(DownloadTask& task) {
  if (transferPolicy() != TransferPolicy::kSafe) return;
  answerPause(
      task,
      blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation, kTaskNotStarted),
      std::nullopt);
}

void DownloadAnswers::answerShutDown(DownloadTask& task) {
  answerEnd(
      task,
      blobError(kDownloadTaskErrorDomain, kCodeInvalidStateForBinaryOperation, kLibraryShutDown),
      std::nullopt);
}

void DownloadAnswers::answerCleared(DownloadTask& task) {
  if (transferPolicy() != TransferPolicy::kSafe) return;
  const ErrorPtr error = blobError(kDownloadTaskError, kCodeDownloadTaskFailed, kDownloadsCleared);
  const DownloadBlock pause = task.takePauseDownloadTaskCompletionBlock();
  answerEnd(task, error, std::nullopt);
  answer(pause, task.name(), error, std::nullopt);
}

}  // namespace varo::binary
