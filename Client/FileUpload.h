#pragma once

#include "Client/FileOperation.h"
#include "Client/UploadPoint.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/files.h"
#include "varo/source.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>

namespace varo::detail {

/// An upload over all its runs: the record is made, the bytes are sent, the record is committed.
///
///   [preparing] --> [creating] --record--> [sending] --last chunk--> [committing]
///                                 ^
///        a run that goes on ------+
///
/// A stop that would leave something behind, or in doubt, waits: while the record is created, for
/// the response that names it; a pause while it is committed, for the end. It ends at once where
/// that request waits to be repeated. One that is given up for
/// good removes the record. A run that goes on begins at the first chunk that is not known to be
/// there.
class FileUpload final : public FileCall<FileRecord>,
                         public std::enable_shared_from_this<FileUpload> {
 public:
  FileUpload(std::shared_ptr<ClientCore> core, Source source, UploadOptions options);

  [[nodiscard]] const std::string& about() const override { return about_; }
  [[nodiscard]] OperationKind kind() const override { return OperationKind::kFileUpload; }
  [[nodiscard]] std::uint64_t memory() const override;
  [[nodiscard]] std::optional<Bytes> perSecond() const override { return options_.perSecond; }
  [[nodiscard]] Outcome<void> send(const FileRun& run) override;
  [[nodiscard]] Outcome<FileRecord> read(const platform::Dictionary& result) override;
  void progress(RunningBase& handle, const platform::Dictionary& report) override;
  /// What an upload template says wrong is no mistake of the caller's. What makes or commits the
  /// record may have been carried out.
  [[nodiscard]] Failure explain(Failure failure, const platform::Value& told) override;
  /// A service may still be busy with the request that was given up or repeated, or have other
  /// chunks than the place says: the same chunk twice more, then all of them.
  [[nodiscard]] std::optional<std::chrono::milliseconds> runsAgainAfter(
      const Failure& failure) override;
  void complete(Failure failure, const std::function<void(Outcome<FileRecord>)>& done) override;
  [[nodiscard]] bool canPause() const override { return true; }
  void stop(const std::shared_ptr<platform::Cancellation>& run, bool forGood) override;

 private:
  enum class Phase { kPreparing, kCreating, kSending, kCommitting };

  [[nodiscard]] Outcome<void> prepare(const FileRun& run);
  [[nodiscard]] Outcome<UploadPoint> pointOf(std::uint64_t size,
                                             std::optional<std::int64_t> modified) const;
  void enterRun(const FileRun& run);
  void made(RunningBase& handle, platform::Dictionary creation);
  void repeats();
  void handedOver(RunningBase& handle, std::uint64_t bytesOfRequest);
  void tellPlace(RunningBase& handle) const;
  [[nodiscard]] bool wasRefused(const Failure& failure) const VARO_REQUIRES(mutex_);
  [[nodiscard]] std::shared_ptr<binary::OperationSettings> settingsAtTheEnd() const;
  [[nodiscard]] Outcome<platform::Dictionary> headersAtTheEnd(
      binary::OperationSettings& settings) const;
  void remove(const FileId& record, const std::function<void(bool isGone)>& done) const;
  void lookForCommitted(Failure failure, const std::function<void(Outcome<FileRecord>)>& done);

  const std::shared_ptr<ClientCore> core_;
  const UploadOptions options_;
  const std::string name_;
  const std::string about_;
  platform::Dictionary metadata_;  // constant after construction

  // Owned by the run.
  std::optional<Source> source_;
  std::optional<platform::Data> bytes_;

  std::stop_source givenUp_;

  mutable platform::Mutex mutex_;
  Phase phase_ VARO_GUARDED_BY(mutex_) = Phase::kPreparing;
  UploadPoint point_ VARO_GUARDED_BY(mutex_);
  /// Of the run.
  std::shared_ptr<platform::Cancellation> current_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<HeldCredentials> credentials_ VARO_GUARDED_BY(mutex_);
  /// To be stopped as soon as the record has a name.
  bool stopsLater_ VARO_GUARDED_BY(mutex_) = false;
  bool isStopped_ VARO_GUARDED_BY(mutex_) = false;
  /// Of the run: ends the wait for another attempt, and no request.
  std::shared_ptr<platform::Cancellation> noMoreAttempts_ VARO_GUARDED_BY(mutex_);
  /// The run went on at this byte; none where it made a record.
  std::optional<std::uint64_t> resumedAt_ VARO_GUARDED_BY(mutex_);
  bool hasTakenChunk_ VARO_GUARDED_BY(mutex_) = false;  // the service, in this run
  /// The request that is under way, so that the service may still be busy with the one before.
  bool hasRepeated_ VARO_GUARDED_BY(mutex_) = false;
  /// Runs that ended with a chunk that was refused, one after the other.
  std::size_t refusals_ VARO_GUARDED_BY(mutex_) = 0;
  /// Where the chunk that is under way begins.
  std::uint64_t at_ VARO_GUARDED_BY(mutex_) = 0;
};

}  // namespace varo::detail
