#include "Binary/Binary/BinaryDataManager/BlobDownload.h"
#include "Binary/Binary/BinaryDataManager/BlobErrors.h"
#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"
#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadFile.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadPath.h"
#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Binary/Binary/DownloadTask/FileFailure.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/File.h"

#include <cerrno>
#include <utility>

// One run of a download: from its place on until the row says how it ended.

namespace varo::binary {

using Effects = StepQueue::Effects;
namespace texts = log_texts::blob_download;

void BlobDownload::run(Run run) {
  logger().logDebug(run == Run::kStarts ? texts::kFire : texts::kCallingResume, blobId_);
  const FileClaim::Lease claim = claimFile();
  if (claim == nullptr) return;
  ErrorPtr notAvailable;
  Dictionary row;
  // Only who has the file knows that nobody is about to complete it.
  if (const auto available = rows_.checkIfFileAvailable(&notAvailable, &row)) {
    claim->finish();
    return comeToRest(claim, State::kEnded, nullptr, available);
  }
  launch(run, claim, row);
}

FileClaim::Lease BlobDownload::claimFile() {
  const auto& places = settings_->blobPlaces;
  const std::string path =
      places ? DownloadPath::ofBlobIn(places->files, blobId_) : DownloadPath::ofBlob(blobId_);
  FileClaim::Attempt attempt;
  if (path.empty()) attempt.error = Error::fromErrno(EINVAL, "Creating", blobId_);
  // Inside of a step, so that what tells of the free file finds this download waiting for it.
  steps_->run([&]() -> Effects {
    if (!runs() || attempt.error != nullptr) return {};
    attempt = FileClaim::acquire(path, [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->claimIsFree();
    });
    claim_ = attempt.claim;
    if (attempt.claim != nullptr || attempt.error != nullptr) return {};
    if (isHalted_) return end(State::kStopped, downloadStopped());
    const auto waiting = std::make_shared<WaitingBlocks>();
    Effects effects{calling(waiting, nullptr, std::nullopt,
                            downloadError(kCodeInvalidStateForBinaryOperation, kTaskNotStarted)),
                    [self = shared_from_this()] {
                      self->places_.leave(self);
                      self->places_.startNextScheduledTask();
                    }};
    moveTo(State::kWaiting);
    waiting->takePause(*task_);
    return effects;
  });
  if (attempt.error != nullptr) {
    // The row of a file that another process has is that process's.
    if (!FileClaim::isBusy(*attempt.error)) rows_.updateState(kDownloadErrored, {});
    fail(nullptr, {{kPersistenceError, creationFailure(attempt.error, path)}});
  }
  return attempt.claim;
}

void BlobDownload::claimIsFree() {
  steps_->run([this]() -> Effects { return state_ == State::kWaiting ? schedule() : Effects(); });
}

void BlobDownload::launch(Run run, const FileClaim::Lease& claim, const Dictionary& row) {
  Dictionary input = task_->inputContext();
  if (run == Run::kResumes) input = rows_.withMetaData(std::move(input));
  const auto [bytes, isWhole] = rows_.beginningIn(*claim, row, run == Run::kStarts);
  if (isWhole) return endWithWholeFile(claim, bytes);
  // What is in it is of nothing that is known, and a row may come to name the file.
  if (bytes == 0 && DownloadFile::sizeAt(claim->path()) > 0) {
    (void)DownloadFile().empty(claim->path());
  }
  input.set(kTotalBytesDownloaded, bytes);
  input.set(kValidator, bytes > 0 ? platform::Value(claim->validator()) : platform::Value());
  input.set(kFileClaim, claim->withoutLease());
  if (run == Run::kResumes) logger().logDebug(texts::kResumeInput, blobId_, input);
  steps_->run([&]() -> Effects {
    if (claim_ != claim) return {};  // stopped meanwhile
    task_->updateInputContext(input);
    Effects effects{[task = task_, run] {
      if (run == Run::kResumes) {
        task->resumeDownload();
      } else {
        task->start();
      }
    }};
    // A pause that came before there was anything to pause.
    if (state_ == State::kPausing) {
      effects.push_back([task = task_] { task->pauseDownload(); });
    }
    return effects;
  });
}

/// A row that does not say so, since it could not be written, is mended.
void BlobDownload::endWithWholeFile(const FileClaim::Lease& claim, std::int64_t size) {
  const auto file = platform::File::openForWriting(claim->path());
  const auto synced = file ? (*file)->sync() : platform::Result<void>(file.error());
  if (!synced) {
    rows_.updateState(kDownloadErrored, {});
    return fail(claim, {{kPersistenceError, creationFailure(synced.error(), claim->path())}});
  }
  taskEnded(claim, {{kBlobId, blobId_}, {kFilePath, claim->path()}, {kTotalFileSize, size}});
}

void BlobDownload::fail(const FileClaim::Lease& claim, const Dictionary& context) {
  comeToRest(claim, State::kFailed, downloadFailure(context), std::nullopt);
}

/// An allocation has failed, or a library has; the download has not, but cannot go on.
void BlobDownload::threw(std::string_view what) {
  steps_->run([&]() -> Effects {
    if (!runs() && state_ != State::kWaiting) return {};
    return end(State::kFailed, downloadThrew(what));
  });
}

// What the task tells.

void BlobDownload::task(const std::shared_ptr<VSTask>& task, TaskState from, TaskState to,
                        const Dictionary& context) {
  try {
    // Held until the row is written, whoever stops the download meanwhile.
    FileClaim::Lease claim;
    steps_->run([&]() -> Effects {
      if (runs() && task == task_) claim = claim_;
      return {};
    });
    if (claim == nullptr) return;
    const Dictionary output = context[platform::kTaskOutputContext].dictionaryValue();
    if (from != to) return taskChanged(*task, claim, to, output);
    if (settings_->isSafe()) rows_.noteFile(output);
  } catch (const std::exception& exception) {
    threw(exception.what());
  } catch (...) {
    threw(kUnknownException);
  }
}

void BlobDownload::taskChanged(const VSTask& task, const FileClaim::Lease& claim, TaskState to,
                               const Dictionary& output) {
  switch (to) {
    case TaskState::Started:
      return rows_.noteStart(claim);
    case TaskState::Ended:
      return taskEnded(claim, output);
    // The row is written before the claim goes and the blocks are called: whoever comes next reads
    // it.
    case TaskState::Paused:
      rows_.updateState(kDownloadPaused, output);
      return comeToRest(claim, State::kPaused, nullptr, output);
    case TaskState::Errored:
      rows_.updateState(kDownloadErrored, output);
      return fail(claim, task.errorContext());
    case TaskState::NotStarted:
    case TaskState::Stopped:
      return;
  }
}

void BlobDownload::taskEnded(const FileClaim::Lease& claim, const Dictionary& output) {
  logger().logTrace(texts::kPostProcessing, blobId_);
  const auto noted = rows_.updateDB(output);
  // The hidden file goes only after the row says that the file is complete. Until then it is all
  // that a later download knows of it.
  if (noted) {
    claim->finish();
  } else {
    claim->noteWhole(static_cast<std::int64_t>(DownloadFile::sizeAt(claim->path())));
  }
  if (noted || !settings_->isSafe()) return comeToRest(claim, State::kEnded, nullptr, output);
  fail(claim, {{std::string(platform::kErrorMessageKey), kRowNotWritten},
               {kFilePath, claim->path()},
               {std::string(platform::kUnderlyingError), noted.error()}});
}

void BlobDownload::comeToRest(const FileClaim::Lease& claim, State state, const ErrorPtr& error,
                              const Result& result) {
  steps_->run([&]() -> Effects {
    // It was stopped or cleared meanwhile, and may run again.
    if (!runs() || claim_ != claim) return {};
    return rest(state, error, result);
  });
}

}  // namespace varo::binary
