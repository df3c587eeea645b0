#include "Client/BlobFetch.h"

#include "Binary/Binary/BinaryDataManager/BlobDownload.h"
#include "Binary/Binary/BinaryDataManager/DownloadInput.h"
#include "Binary/Binary/BinaryDataManager/DownloadPlaces.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/RangeWindow.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Client/BlobStates.h"
#include "Client/Failures.h"
#include "Client/FileRecords.h"
#include "Client/MemoryNeeds.h"
#include "Platform/Foundation/PercentCoding.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <string_view>
#include <system_error>
#include <utility>

namespace varo::detail {

using binary::BlobDownload;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Value;

namespace {

/// The client's own places say how many run, and a download may outlive its client.
binary::DownloadPlaces& downloadPlaces() {
  static auto& places = *new binary::DownloadPlaces(std::numeric_limits<std::size_t>::max());
  return places;
}

std::string_view responseType(BlobEncoding encoding) {
  return encoding == BlobEncoding::kBase64 ? "Base64" : "Binary";
}

Dictionary dictionaryOf(const std::map<std::string, std::string>& texts) {
  Dictionary dictionary;
  for (const auto& [name, text] : texts) dictionary.set(name, text);
  return dictionary;
}

Dictionary configurationOf(const BlobStoreCore& core, const BlobRef& blob,
                           const Dictionary& headers) {
  const BlobService& service = core.service();
  const std::string& object = service.object.empty() ? blob.table : service.object;
  // Names stand in the address as they are given.
  Dictionary configuration{
      {binary::kURL, core.client().url() + "/"},
      {binary::kScopeName, platform::percentEncode(service.scope)},
      {binary::kObjectName, platform::percentEncode(object)},
      {binary::kChunkSizeKey, static_cast<std::int64_t>(service.rangeSize.count)},
      {binary::kResponseType, responseType(service.encoding)},
      {binary::kDownloadHeaders, headers},
      {binary::keys::kQueryParams, dictionaryOf(service.parameters)}};
  if (!service.clientId.empty()) configuration.set(binary::kClientID, service.clientId);
  if (!service.syncSessionId.empty()) configuration.set(binary::kSessionID, service.syncSessionId);
  return configuration;
}

/// Ranges that are under way, and those that have come and are not written yet. In Base64 an object
/// comes as a whole: its JSON, the text in it, and its bytes.
std::uint64_t memoryOf(const BlobService& service) {
  if (service.encoding == BlobEncoding::kBase64) {
    return memory::kRequest + 3 * binary::AnswerLimits().base64;
  }
  const std::uint64_t bytes =
      std::min<std::uint64_t>(service.rangeSize.count, platform::tuning::kSpoolThreshold);
  return memory::sideBySide(service.parallelRanges, memory::getting(service.rangeSize.count)) +
         binary::RangeWindow::kMaxWaitingChunks * bytes;
}

bool isHalt(const ErrorPtr& error) {
  return error->code() == binary::kCodeInvalidStateForBinaryOperation &&
         error->localizedDescription() == binary::kDownloadStopped;
}

}  // namespace

BlobFetch::BlobFetch(std::shared_ptr<BlobStoreCore> core, BlobRef blob,
                     std::shared_ptr<Fetching> running, std::function<void()> rested)
    : Operation(core->client(), OperationKind::kBlobFetch, memoryOf(core->service())),
      core_(std::move(core)),
      blob_(std::move(blob)),
      about_("fetch of the blob " + describe(blob_)),
      running_(std::move(running)),
      rested_(std::move(rested)) {}

void BlobFetch::launch(std::uint64_t run,
                       const std::shared_ptr<platform::Cancellation>& cancellation) {
  auto prepared =
      core_->database()->prepare(blob_, responseType(core_->service().encoding), about_);
  if (!prepared) return failed(run, std::move(prepared).error());
  if (prepared->file) {
    return succeeded(run, Dictionary{{binary::kFilePath, prepared->file->string()}});
  }
  const auto settings = core_->client().settings();
  settings->parallelRanges = static_cast<std::size_t>(core_->service().parallelRanges);
  const ClientCore& client = core_->client();
  Outcome<Dictionary> headers =
      client.headers(*settings, client.holdCredentials(cancellation->token()));
  if (!headers) return failed(run, std::move(headers).error());
  direct(run, *settings);
  const auto download = makeDownload(prepared->id, *headers, settings);
  const auto self = std::static_pointer_cast<BlobFetch>(shared_from_this());
  download->start([self, run, stop = cancellation->token()](
                      const auto& /*id*/, const ErrorPtr& error, const auto& result) {
    self->told(run, stop, error, result);
  });
  // After the start, since there is nothing to halt before.
  haltOn(run, cancellation->token(), download);
}

std::shared_ptr<BlobDownload> BlobFetch::makeDownload(
    const std::string& id, const Dictionary& headers,
    const std::shared_ptr<binary::OperationSettings>& settings) {
  core_->database()->direct(*settings);
  Dictionary configuration = configurationOf(*core_, blob_, headers);
  configuration.set(binary::kOnChunkDownloadCompleted,
                    std::make_shared<binary::OnChunkDownloadCompleted>(
                        [running = running_](const std::string& /*id*/, std::int64_t bytes,
                                             std::int64_t total, const Value& /*parameters*/) {
                          running->reached(static_cast<std::uint64_t>(bytes),
                                           static_cast<std::uint64_t>(total));
                        }));
  return BlobDownload::create(binary::downloadInput(configuration, {{binary::kBlobId, id}},
                                                    dictionaryFrom(blob_.keys), *settings),
                              settings, downloadPlaces());
}

/// A stop may come at any moment, in here as well.
void BlobFetch::haltOn(std::uint64_t run, const std::stop_token& stop,
                       const std::shared_ptr<BlobDownload>& download) {
  auto halt = std::make_unique<Stop>(stop, [download] {
    // A copy, since what is called may destroy this function.
    std::shared_ptr<BlobDownload>(download)->halt();
  });
  const MutexLock lock(stopMutex_);
  // A later run may have begun already, where this one had an end at once.
  if (run < stopRun_) return;
  stopRun_ = run;
  stop_.swap(halt);
}

void BlobFetch::told(std::uint64_t run, const std::stop_token& stop, const ErrorPtr& error,
                     const std::optional<Dictionary>& result) {
  if (error == nullptr) return succeeded(run, result.value_or(Dictionary()));
  if (!stop.stop_requested() || !isHalt(error)) return failed(run, failureIn(error));
  failed(run, failureOf(Kind::kCancelled, "The fetch was cancelled"));
  if (rested_) rested_();
}

Failure BlobFetch::failureIn(const ErrorPtr& error) const {
  const Dictionary& context = error->userInfo();
  const bool isOfFile = !context.contains(std::string(platform::kTaskErrors)) &&
                        context[binary::kPersistenceError].isDictionary();
  Failure failure = failureFrom(
      isOfFile ? Value(Dictionary{{binary::keys::kUserInfo, context[binary::kPersistenceError]}})
               : Value(error),
      about_);
  const bool isRow = error->localizedDescription() == binary::kRowNotWritten;
  if (isRow && failure.kind != Kind::kDiskFull) failure.kind = Kind::kDatabase;
  return failure;
}

void BlobFetch::finish(const Value& result) {
  std::filesystem::path file(result.dictionaryValue()[binary::kFilePath].textValue());
  std::error_code unknown;
  const auto size = std::filesystem::file_size(file, unknown);
  if (!unknown) running_->reached(size, size);
  running_->end(std::move(file));
}

void BlobFetch::finish(Failure failure) {
  if (!failure.message.starts_with(about_)) {
    failure.message = fmt::format("{}: {}", about_, failure.message);
  }
  running_->end(std::move(failure));
}

}  // namespace varo::detail
