#include "Client/FileUpload.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Client/FileRecords.h"
#include "Client/SourceData.h"
#include "Platform/Foundation/Mutex.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace varo::detail {

using binary::FileStorageManager;
using binary::OperationSettings;
using platform::Dictionary;
using platform::MutexLock;
namespace keys = binary::keys;

namespace {

using Callback = std::shared_ptr<binary::BinaryCallback>;
using Settings = std::shared_ptr<OperationSettings>;

/// How far an upload has come, for its failure. Thread-safe.
class UploadStage {
 public:
  void made(const std::string& fileId) {
    const MutexLock lock(mutex_);
    if (!fileId.empty()) record_ = FileId(fileId);
  }
  void sentAll() {
    const MutexLock lock(mutex_);
    hasSentAll_ = true;
  }

  [[nodiscard]] std::optional<FileId> record() const {
    const MutexLock lock(mutex_);
    return record_;
  }
  [[nodiscard]] bool hasSentAll() const {
    const MutexLock lock(mutex_);
    return hasSentAll_;
  }

 private:
  mutable platform::Mutex mutex_;
  std::optional<FileId> record_ VARO_GUARDED_BY(mutex_);
  bool hasSentAll_ VARO_GUARDED_BY(mutex_) = false;
};

std::string nameOf(const Source& source, const UploadOptions& options) {
  if (!options.name.empty()) return options.name;
  const auto* path = std::get_if<std::filesystem::path>(&source.content());
  return path != nullptr ? path->filename().string() : std::string();
}

void show(UploadStage& stage, RunningBase& running, const Dictionary& report) {
  const Dictionary data = report[keys::kProgressData].dictionaryValue();
  const auto bytes = [&data](const char* key) {
    return static_cast<std::uint64_t>(std::max<std::int64_t>(data[key].integerValue(), 0));
  };
  running.reached(bytes(keys::kBytesUploadedTillNow), bytes(keys::kTotalBytesToUpload));
  if (data[keys::kIsLastChunk].boolValue()) stage.sentAll();
}

/// Whether the commit may have been carried out although nobody knows: its response was lost.
bool mayBeCommitted(const UploadStage& stage, const Failure& failure) {
  return stage.hasSentAll() && !failure.httpStatus && !failure.serviceStatus &&
         (failure.kind == Kind::kNoConnection || failure.kind == Kind::kTimeout);
}

/// Removes the record of an upload that was given up, then calls `done`.
void removeRecord(const ClientCore& core, Failure failure,
                  const std::function<void(Failure)>& done) {
  const std::string record = failure.begun->text();
  const auto callback = std::make_shared<binary::BinaryCallback>();
  callback->setSuccessCallback([failure, done](const platform::Value& /*result*/) {
    Failure whole = failure;
    whole.begun.reset();
    done(std::move(whole));
  });
  callback->setFailureCallback([failure, done](const platform::Value& /*why*/) { done(failure); });
  const Outcome<Dictionary> headers = core.headers();
  if (!headers) return done(std::move(failure));
  FileStorageManager::sharedInstance().deleteWithUrl(core.url(), record, Dictionary{}, *headers,
                                                     callback, optionsWith(core.settings()));
}

}  // namespace

FileCall<FileRecord> uploadCall(const std::shared_ptr<ClientCore>& core, Source source,
                                UploadOptions options) {
  const auto stage = std::make_shared<UploadStage>();
  const std::string name = nameOf(source, options);
  Dictionary metadata = dictionaryFrom(options.metadata);
  metadata.addEntries(metadataOf(options.fileNamespace, options.securityKey));
  metadata.set(keys::kFileName, name);
  const Bytes chunk = options.chunkSize.value_or(core->options().chunkSize);

  FileCall<FileRecord> call;
  call.about = fmt::format("upload of \"{}\"", name);
  call.send = [stage, metadata, chunk, name, url = core->url(),
               source = std::make_shared<Source>(std::move(source))](
                  const Dictionary& headers, const Settings& settings,
                  const Callback& callback) -> Outcome<void> {
    if (name.empty()) return failureOf(Kind::kInvalidArgument, "UploadOptions::name is empty");
    if (chunk.count == 0) return failureOf(Kind::kInvalidArgument, "UploadOptions::chunkSize is 0");
    // It runs once: an upload is not begun anew.
    auto bytes = dataFrom(std::move(*source));
    if (!bytes) return std::move(bytes).error();
    settings->onRecordMade = [stage](const std::string& fileId) { stage->made(fileId); };
    FileStorageManager::sharedInstance().uploadBinaryWithUrl(
        url, binary::UploadInputType::kRawBytes,
        Dictionary{{keys::kHeaders, headers},
                   {keys::kMetadata, metadata},
                   {keys::kFile, Dictionary{{keys::kRawBytes, *bytes}}},
                   {keys::kChunkSize, static_cast<std::int64_t>(chunk.count)}},
        callback, optionsWith(settings));
    return {};
  };
  call.progress = [stage](RunningBase& running, const Dictionary& report) {
    show(*stage, running, report);
  };
  call.complete = [stage, core](Failure failure, const std::function<void(Failure)>& done) {
    failure.begun = stage->record();
    failure.maybeDone = mayBeCommitted(*stage, failure);
    if (failure.kind != Kind::kCancelled || !failure.begun) return done(std::move(failure));
    removeRecord(*core, std::move(failure), done);
  };
  call.read = [metadata](const Dictionary& result) -> Outcome<FileRecord> {
    Dictionary record = metadata;
    record.addEntries(result[keys::kRequestContext].dictionaryValue());
    return recordFrom(record);
  };
  return call;
}

}  // namespace varo::detail
