#include "Client/FileDownload.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Manager/FileStorageManager.h"
#include "Client/FileDestination.h"
#include "Client/FileRecords.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <cstdint>
#include <utility>
#include <variant>

namespace varo::detail {

using binary::FileStorageManager;
using platform::Data;
using platform::Dictionary;
using platform::Result;
namespace keys = binary::keys;

namespace {

constexpr int kRangeNotSatisfiable = 416;

}  // namespace

FileDownload::FileDownload(std::string url, FileId id, Destination to,
                           const DownloadOptions& options)
    : url_(std::move(url)),
      id_(std::move(id)),
      to_(std::move(to)),
      options_(options),
      about_(fmt::format("download of the file {}", id_.text())) {}

Outcome<void> FileDownload::send(const FileRun& run) {
  if (auto good = checked(id_); !good) return good;
  if (options_.range && options_.range->length == Bytes(0)) {
    return failureOf(Kind::kInvalidArgument, about_ + ": DownloadOptions::range has no bytes");
  }
  stop_ = run.cancellation->token();
  return std::visit([&](const auto& to) { return sendTo(to, run); }, to_);
}

Outcome<void> FileDownload::sendTo(const std::filesystem::path& path, const FileRun& run) {
  // Anew in each run: somebody may have made the file meanwhile.
  auto prepared = prepare(path, options_.ifExists);
  if (!prepared) return std::move(prepared).error();
  if (prepared->kept) {
    run.callback->executeSuccessWithResult(Dictionary{{keys::kFilePath, prepared->kept->string()}});
    return {};
  }
  if (file_ == nullptr) {
    file_ = std::make_shared<PartialFile>(about_, prepared->directory, options_.range);
  }
  request(run, prepared->directory,
          [file = file_, store = std::move(prepared->store)](const Data&) -> Result<std::string> {
            auto bytes = file->take();
            return bytes ? store(*bytes) : bytes.error();
          });
  return {};
}

Outcome<void> FileDownload::sendTo(const Sink& sink, const FileRun& run) {
  if (sink == nullptr) {
    return failureOf(Kind::kInvalidArgument, about_ + ": the destination is an empty function");
  }
  if (file_ == nullptr) {
    file_ = std::make_shared<PartialFile>(about_, std::string(), options_.range);
    feed_ = std::make_shared<SinkFeed>(about_, sink, file_, run.handle);
  }
  feed_->begin(stop_);
  request(run, {}, [file = file_, feed = feed_](const Data&) -> Result<std::string> {
    if (!feed->finish()) return platform::Error::make("Sink", 0, "the sink took not all bytes");
    auto bytes = file->take();
    if (!bytes) return bytes.error();
    return std::string();
  });
  return {};
}

void FileDownload::request(const FileRun& run, const std::string& directory, Store store) {
  if (file_->isComplete()) {
    // Paused when the last byte had come.
    const auto stored = store({});
    if (!stored) return run.callback->executeFailureWithError(stored.error());
    return run.callback->executeSuccessWithResult(Dictionary{{keys::kFilePath, *stored}});
  }
  PartialFile::Run part =
      file_->beginRun([handle = run.handle, feed = feed_](std::uint64_t done, std::uint64_t total) {
        handle->reached(done, total);
        if (feed != nullptr) feed->wake();
      });
  run.settings->destination = {.spoolDirectory = directory,
                               .receiver = std::move(part.receiver),
                               .headers = std::move(part.headers),
                               .store = std::move(store)};
  Dictionary metadata = metadataOf(options_.fileNamespace, options_.securityKey);
  metadata.set(keys::kFileId, id_.text());
  FileStorageManager::sharedInstance().downloadWithURL(
      url_, Dictionary{{keys::kHeaders, run.headers}, {keys::kMetadata, metadata}}, run.callback,
      optionsWith(run.settings));
}

Outcome<std::filesystem::path> FileDownload::read(const Dictionary& result) {
  return std::filesystem::path(result[keys::kFilePath].textValue());
}

Failure FileDownload::explain(Failure failure, const platform::Value& /*told*/) {
  if (feed_ != nullptr) {
    feed_->end();
    if (auto thrown = feed_->failure()) return *std::move(thrown);
    // The engine takes bytes that were not handed over for a failure to store them.
    if (stop_.stop_requested()) {
      return failureOf(Kind::kCancelled, about_ + ": The operation was cancelled.");
    }
  }
  if (failure.kind == Kind::kCancelled) return failure;
  if (auto wrong = file_->failure()) return *std::move(wrong);
  if (failure.httpStatus == kRangeNotSatisfiable && options_.range) {
    failure.kind = Kind::kInvalidArgument;
    failure.message = about_ + ": DownloadOptions::range begins behind the end of the file";
  }
  return failure;
}

}  // namespace varo::detail
