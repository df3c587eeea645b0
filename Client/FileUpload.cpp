#include "Client/FileUpload.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Client/FileRecords.h"
#include "Client/SourceData.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Sleeper.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>
#include <variant>

namespace varo::detail {

using binary::FileStorageManager;
using platform::Cancellation;
using platform::Dictionary;
using platform::MutexLock;
namespace keys = binary::keys;

namespace {

/// How long one who gives up waits for the response that names the record.
constexpr std::chrono::milliseconds kLongestWaitForRecord{5000};
/// Before a chunk is sent again that was refused when it was repeated, or when the upload went on.
/// After the last one all chunks are.
constexpr std::array<std::chrono::milliseconds, 3> kWaitsAfterRefusal = {
    std::chrono::milliseconds(200), std::chrono::milliseconds(1000), std::chrono::milliseconds(0)};

std::string nameOf(const Source& source, const UploadOptions& options) {
  if (!options.name.empty()) return options.name;
  const auto* path = std::get_if<std::filesystem::path>(&source.content());
  return path != nullptr ? path->filename().string() : std::string();
}

Dictionary metadataFrom(const UploadOptions& options, const std::string& name) {
  Dictionary metadata = dictionaryFrom(options.metadata);
  metadata.addEntries(metadataOf(options.fileNamespace, options.securityKey));
  metadata.set(keys::kFileName, name);
  return metadata;
}

/// Of a file; none of other sources, and where it cannot be told.
std::optional<std::int64_t> modificationOf(const Source& source) {
  const auto* path = std::get_if<std::filesystem::path>(&source.content());
  if (path == nullptr) return std::nullopt;
  std::error_code failure;
  const auto time = std::filesystem::last_write_time(*path, failure);
  return failure ? std::nullopt : std::optional<std::int64_t>(time.time_since_epoch().count());
}

std::uint64_t bytesIn(const Dictionary& data, const char* key) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(data[key].integerValue(), 0));
}

bool isOfService(const Failure& failure) {
  return failure.serviceStatus && *failure.serviceStatus != 0;
}

}  // namespace

FileUpload::FileUpload(std::shared_ptr<ClientCore> core, Source source, UploadOptions options)
    : core_(std::move(core)),
      options_(std::move(options)),
      name_(varo::detail::nameOf(source, options_)),
      about_(fmt::format("upload of \"{}\"", name_)),
      metadata_(metadataFrom(options_, name_)),
      source_(std::move(source)) {}

Outcome<void> FileUpload::prepare(const FileRun& run) {
  const auto wrong = [this](std::string_view what) {
    return failureOf(Kind::kInvalidArgument, fmt::format("{}: UploadOptions::{}", about_, what));
  };
  if (name_.empty()) return wrong("name is empty");
  if (options_.chunkSize == Bytes(0)) return wrong("chunkSize is 0");
  if (auto good = checked(metadata_, about_); !good) return good;
  const bool isReader = std::holds_alternative<Source::Read>(source_->content());
  if (!options_.resume.empty() && isReader) {
    return wrong("resume needs a file or bytes, which can be read again");
  }
  const auto modified = modificationOf(*source_);
  auto bytes = dataFrom(*std::move(source_), about_, *run.handle, givenUp_.get_token());
  if (!bytes) return std::move(bytes).error();
  if (bytes->size() == 0) {
    return failureOf(Kind::kInvalidArgument,
                     about_ + ": the source has no bytes, and the service takes no empty file");
  }
  auto point = pointOf(bytes->size(), modified);
  if (!point) return wrong(point.error().message);
  bytes_ = *std::move(bytes);
  const MutexLock lock(mutex_);
  point_ = *std::move(point);
  return {};
}

Outcome<UploadPoint> FileUpload::pointOf(std::uint64_t size,
                                         std::optional<std::int64_t> modified) const {
  if (options_.resume.empty()) {
    UploadPoint point;
    point.size = size;
    point.modified = modified;
    point.chunk = options_.chunkSize.value_or(core_->options().chunkSize).count;
    return point;
  }
  auto point = UploadPoint::from(options_.resume);
  if (point && (point->size != size || point->modified != modified)) {
    return failureOf(Kind::kInvalidArgument,
                     "resume is of other bytes: the source has changed since then");
  }
  return point;
}

void FileUpload::enterRun(const FileRun& run) {
  std::optional<FileId> abandoned;
  {
    const MutexLock lock(mutex_);
    hasTakenChunk_ = false;
    hasRepeated_ = false;
    resumedAt_.reset();
    if (point_.record()) resumedAt_ = point_.next();
    if (!resumedAt_) {
      abandoned = point_.record();
      point_.creation = {};
      point_.sent = 0;
    }
    at_ = resumedAt_.value_or(0);
    phase_ = resumedAt_ ? Phase::kSending : Phase::kCreating;
    if (resumedAt_) {
      run.settings->resumed = {point_.creation, static_cast<std::int64_t>(*resumedAt_)};
    }
  }
  if (abandoned) remove(*abandoned, [](bool) {});
}

Outcome<void> FileUpload::send(const FileRun& run) {
  {
    const MutexLock lock(mutex_);
    phase_ = Phase::kPreparing;
    current_ = run.cancellation;
    credentials_ = run.credentials;
    noMoreAttempts_ = std::make_shared<Cancellation>();
    run.settings->noMoreAttempts = noMoreAttempts_->token();
    stopsLater_ = false;
    isStopped_ = false;
  }
  if (!bytes_) {
    if (auto ready = prepare(run); !ready) return ready;
  }
  enterRun(run);
  run.settings->onRecordMade = [self = shared_from_this(), handle = run.handle](
                                   const Dictionary& creation) { self->made(*handle, creation); };
  run.settings->onRetry = [self = shared_from_this(), tell = std::move(run.settings->onRetry)](
                              int attempt, std::chrono::milliseconds wait) {
    self->repeats();
    if (tell != nullptr) tell(attempt, wait);
  };
  run.settings->onSent = [self = shared_from_this(), handle = run.handle](std::uint64_t bytes) {
    self->handedOver(*handle, bytes);
  };
  std::uint64_t chunk = 0;
  {
    const MutexLock lock(mutex_);
    chunk = point_.chunk;
  }
  FileStorageManager::sharedInstance().uploadBinaryWithUrl(
      core_->url(), binary::UploadInputType::kRawBytes,
      Dictionary{{keys::kHeaders, run.headers},
                 {keys::kMetadata, metadata_},
                 {keys::kFile, Dictionary{{keys::kRawBytes, *bytes_}}},
                 {keys::kChunkSize, static_cast<std::int64_t>(chunk)}},
      run.callback, optionsWith(run.settings));
  return {};
}

void FileUpload::made(RunningBase& handle, Dictionary creation) {
  creation.remove(binary::kResponseHeaders);
  std::shared_ptr<Cancellation> stopped;
  {
    const MutexLock lock(mutex_);
    point_.creation = std::move(creation);
    phase_ = Phase::kSending;
    hasRepeated_ = false;
    if (stopsLater_) stopped = current_;
  }
  tellPlace(handle);
  // Before the first chunk, which is not sent any more.
  if (stopped != nullptr) stopped->cancel();
}

void FileUpload::repeats() {
  const MutexLock lock(mutex_);
  hasRepeated_ = true;
}

void FileUpload::handedOver(RunningBase& handle, std::uint64_t bytesOfRequest) {
  std::uint64_t done = 0;
  std::uint64_t total = 0;
  {
    const MutexLock lock(mutex_);
    if (phase_ != Phase::kSending) return;
    total = point_.size;
    // A form has more bytes than the chunk in it.
    done = std::min(at_ + bytesOfRequest, total);
  }
  handle.reached(done, total);
}

void FileUpload::progress(RunningBase& handle, const Dictionary& report) {
  const Dictionary data = report[keys::kProgressData].dictionaryValue();
  if (!data.contains(keys::kChunkId)) return;  // it only begins
  std::shared_ptr<Cancellation> stopped;
  const std::uint64_t sent = bytesIn(data, keys::kBytesUploadedTillNow);
  {
    const MutexLock lock(mutex_);
    point_.sent = std::min(sent, point_.size);
    at_ = point_.sent;
    hasTakenChunk_ = true;
    hasRepeated_ = false;
    refusals_ = 0;
    if (data[keys::kIsLastChunk].boolValue()) {
      // A stop that was decided on before must not hit the commit halfway.
      if (isStopped_) stopped = current_;
      if (!isStopped_) phase_ = Phase::kCommitting;
    }
  }
  if (stopped != nullptr) stopped->cancel();
  handle.reached(sent, bytesIn(data, keys::kTotalBytesToUpload));
  tellPlace(handle);
}

void FileUpload::tellPlace(RunningBase& handle) const {
  if (options_.onPlace == nullptr) return;
  std::optional<FileId> record;
  UploadPlace place;
  {
    const MutexLock lock(mutex_);
    record = point_.record();
    place = point_.place();
  }
  if (!record) return;
  handle.inTurn([tell = options_.onPlace, record = *record, place] { tell(record, place); });
}

void FileUpload::stop(const std::shared_ptr<Cancellation>& run, bool forGood) {
  // A reader is read to its end for a pause: nobody can ask it for its bytes again.
  if (forGood) givenUp_.request_stop();
  bool cancels = true;
  bool waits = false;
  std::shared_ptr<Cancellation> noMoreAttempts;
  {
    const MutexLock lock(mutex_);
    if (run == current_) {
      noMoreAttempts = noMoreAttempts_;
      if (phase_ == Phase::kCreating) {
        waits = !std::exchange(stopsLater_, true);
        cancels = false;
      } else if (phase_ == Phase::kCommitting && !forGood) {
        cancels = false;
      } else {
        isStopped_ = true;
      }
    }
  }
  if (cancels) return run->cancel();
  noMoreAttempts->cancel();
  if (!waits) return;
  platform::Sleeper::shared().wakeAfter(
      kLongestWaitForRecord,
      [weak = std::weak_ptr<Cancellation>(run)](platform::TimerQueue::Reason) {
        if (const auto held = weak.lock()) held->cancel();
      });
}

/// Its requests follow each other.
std::uint64_t FileUpload::memory() const {
  return memory::sending(core_->options().chunkSize.count);
}

Failure FileUpload::explain(Failure failure, const platform::Value& told) {
  const MutexLock lock(mutex_);
  failure.maybeDone =
      (phase_ == Phase::kCreating || phase_ == Phase::kCommitting) && mayHaveArrived(told);
  const bool isTemplate = phase_ == Phase::kSending && failure.kind == Kind::kInvalidArgument;
  if (isTemplate) failure.kind = Kind::kNotOurService;
  return failure;
}

bool FileUpload::wasRefused(const Failure& failure) const {
  const bool mayBeBusy = hasRepeated_ || (resumedAt_ && !hasTakenChunk_);
  return mayBeBusy && phase_ == Phase::kSending && isOfService(failure);
}

std::optional<std::chrono::milliseconds> FileUpload::runsAgainAfter(const Failure& failure) {
  const MutexLock lock(mutex_);
  if (!wasRefused(failure) || refusals_ == kWaitsAfterRefusal.size()) return std::nullopt;
  const auto wait = kWaitsAfterRefusal.at(refusals_++);
  if (refusals_ == kWaitsAfterRefusal.size()) point_.sent = 0;
  return wait;
}

void FileUpload::complete(Failure failure, const std::function<void(Outcome<FileRecord>)>& done) {
  bool mayBeCommitted = false;
  {
    const MutexLock lock(mutex_);
    failure.begun = point_.record();
    if (failure.begun) failure.place = point_.place();
    mayBeCommitted = wasRefused(failure);
  }
  if (mayBeCommitted) return lookForCommitted(std::move(failure), done);
  if (failure.kind != Kind::kCancelled || !failure.begun) return done(std::move(failure));
  const FileId record = *failure.begun;
  remove(record, [failure = std::move(failure), done](bool isGone) {
    Failure whole = failure;
    if (isGone) {
      whole.begun.reset();
      whole.place.reset();
    }
    done(std::move(whole));
  });
}

/// Of requests that the outcome waits for, and that nothing can stop: they are sent once.
std::shared_ptr<binary::OperationSettings> FileUpload::settingsAtTheEnd() const {
  auto settings = core_->settings();
  settings->retry.reset();
  settings->observer = observer();
  return settings;
}

Outcome<Dictionary> FileUpload::headersAtTheEnd(binary::OperationSettings& settings) const {
  std::shared_ptr<HeldCredentials> held;
  {
    const MutexLock lock(mutex_);
    held = credentials_;
  }
  return core_->headers(settings, held->atTheEnd());
}

/// Takes away a record that nobody will commit any more.
void FileUpload::remove(const FileId& record, const std::function<void(bool isGone)>& done) const {
  const auto settings = settingsAtTheEnd();
  const Outcome<Dictionary> headers = headersAtTheEnd(*settings);
  if (!headers) return done(false);
  const auto callback = std::make_shared<binary::BinaryCallback>();
  callback->setSuccessCallback([done](const platform::Value& /*result*/) { done(true); });
  callback->setFailureCallback([done](const platform::Value& /*why*/) { done(false); });
  FileStorageManager::sharedInstance().deleteWithUrl(core_->url(), record.text(), Dictionary{},
                                                     *headers, callback, optionsWith(settings));
}

/// A service takes no chunks of a file that was committed, and that is what was wanted.
void FileUpload::lookForCommitted(Failure failure,
                                  const std::function<void(Outcome<FileRecord>)>& done) {
  const auto settings = settingsAtTheEnd();
  const Outcome<Dictionary> headers = headersAtTheEnd(*settings);
  if (!headers) return done(std::move(failure));
  const std::string expression =
      expressionFrom(field(keys::kFileId) == Scalar(failure.begun->text()));
  const auto callback = std::make_shared<binary::BinaryCallback>();
  callback->setSuccessCallback(
      [failure, done, size = Bytes(bytes_->size())](const platform::Value& result) {
        const platform::Array* records = result.dictionaryValue()[keys::kRecords].array();
        if (records == nullptr || records->size() != 1) return done(failure);
        FileRecord record = recordFrom((*records)[0].dictionaryValue());
        if (record.size && *record.size != size) return done(failure);
        done(std::move(record));
      });
  callback->setFailureCallback([failure, done](const platform::Value& /*why*/) { done(failure); });
  FileStorageManager::sharedInstance().listFilesWithUrl(core_->url(), expression, *headers,
                                                        callback, optionsWith(settings));
}

Outcome<FileRecord> FileUpload::read(const Dictionary& result) {
  Dictionary record = metadata_;
  record.addEntries(result[keys::kRequestContext].dictionaryValue());
  FileRecord uploaded = recordFrom(record);
  uploaded.size = Bytes(bytes_->size());
  return uploaded;
}

}  // namespace varo::detail
