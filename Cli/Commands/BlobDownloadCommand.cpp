#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/BlobRecord.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Failures/BlobFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Block.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <utility>

namespace varo::cli {

using binary::BinaryDataManager;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(Bring the binary column of a record into a file, or resume where an earlier run stopped.

Usage: varobinary [GLOBAL] blob download --db NAME --table T --column C --key K=V...
           --config FILE

  --db NAME               SQLite file below the library directory's WEBSQLDIRECTORY
  --table T               table of the record
  --column C              binary column; the table has a column blobref_C
  --key K=V [K=V]...      primary key of the record; may be repeated
  --config FILE           JSON object with the configuration of the download, as the library
                          takes it: "URL", "ScopeName", "ObjectName", "ChunkSize" (bytes of
                          a request), "Headers", "ResponseType" and so on. --header and the
                          token win over it

The file is blobs/ID in the documents directory. An interrupt (Ctrl-C) pauses the
download, and the same command goes on later, also after a crash. A blob that is there
already is not fetched again.

Examples:
  echo '{"URL":"http://127.0.0.1:8080/services/blobs/","ScopeName":"HR",
         "ObjectName":"employees","ChunkSize":1048576}' > photo.json
  varobinary --home try blob download --db staff.db --table employees --column photo \
      --key id=3 --config photo.json

'varobinary sandbox --port 8080 --example-db try/Library/WEBSQLDIRECTORY/staff.db' makes
what is needed to try this.
)";

struct BlobDownloadOptions {
  BlobRecord record;
  /// The configuration as the library takes it.
  platform::Dictionary config;
};

constexpr char kId[] = "id";
constexpr char kResult[] = "result";

/// A pause writes out what has arrived and notes it in the database. One that takes longer waits
/// for a disk or a lock that may never come.
constexpr std::chrono::seconds kPauseLimit{5};

/// The configuration with the headers of the command line, which win over those in the file.
Dictionary configOf(Session& session, const BlobDownloadOptions& options) {
  Dictionary config = options.config;
  Dictionary headers = config[binary::kDownloadHeaders].dictionaryValue();
  for (const auto& header : session.options().headers) {
    // Sets and does not add: the same header twice, in two spellings, would be sent twice.
    setHeader(headers, header.key, header.value.textValue());
    if (!platform::equalIgnoringCase(header.key, binary::kVaroAuthorization)) continue;
    headers.remove(header.key);
    config.set(binary::kVaroAuthorization, header.value);
  }
  config.set(binary::kDownloadHeaders, headers);
  config.set(binary::kOperationSettings, binary::OperationSettings::value(session.settings()));
  Output& output = session.output();
  config.set(binary::kOnChunkDownloadCompleted,
             std::make_shared<binary::OnChunkDownloadCompleted>(
                 [&output](const std::string& id, std::int64_t written, std::int64_t total,
                           const Value&) { output.chunk(id, written, total); }));
  return config;
}

/// One download on its way: made, started, and asked to pause when the user interrupts. Kept alive
/// by the blocks it hands out. Thread-safe.
class BlobDownload : public std::enable_shared_from_this<BlobDownload> {
 public:
  BlobDownload(BlobRecord record, Session::Blocks blocks)
      : record_(std::move(record)), blocks_(std::move(blocks)) {}

  void create(const Dictionary& config) {
    manager().createDownloadTaskForDb(
        record_.database, record_.table, record_.column, record_.keys, config,
        blocks_.guarded([self = shared_from_this()](const ErrorPtr& error,
                                                    const std::optional<std::string>& id) {
          self->created(error, id);
        }));
  }

  /// Asks for the pause, and again where the download had not yet begun to run or is just ending.
  /// The outcome where there is nothing to wait for.
  std::optional<Outcome> pause() {
    const auto now = std::chrono::steady_clock::now();
    std::string id;
    {
      MutexLock lock(mutex_);
      if (!giveUpAt_) giveUpAt_ = now + kPauseLimit;
      if (!startedId_ || now > *giveUpAt_) return Outcome{Outcome::Kind::kInterrupted, {}};
      if (std::exchange(pauseIsAsked_, true)) return std::nullopt;
      id = *startedId_;
    }
    // Without the lock: the library may answer at once, on this thread, and the answer takes it.
    manager().pauseDownload(
        id, blocks_.guarded([self = shared_from_this()](const auto& blobId, const auto& error,
                                                        const auto& result) {
          self->pauseAnswered(blobId, error, result);
        }));
    return std::nullopt;
  }

 private:
  static BinaryDataManager& manager() { return *BinaryDataManager::sharedInstance(); }

  static Value withId(const std::optional<std::string>& id,
                      const std::optional<Dictionary>& delivered) {
    Dictionary result{{kId, id ? Value(*id) : Value()}};
    if (delivered) result.addEntries(*delivered);
    return result;
  }

  void created(const ErrorPtr& error, const std::optional<std::string>& id) {
    if (error != nullptr && error->code() == binary::kCodeInvalidStateForDownloadTaskCreation) {
      return lookUp(id, error);
    }
    if (error != nullptr || !id) return blocks_.onFailure(error);
    {
      MutexLock lock(mutex_);
      // Under the lock that `pause` looks under: either it finds the id and pauses, or this finds
      // the interrupt and starts nothing.
      if (giveUpAt_) return;  // interrupted meanwhile
      startedId_ = id;
    }
    manager().startDownload(
        id, blocks_.guarded([self = shared_from_this()](const auto& blobId, const auto& failure,
                                                        const auto& result) {
          if (failure != nullptr) return self->blocks_.onFailure(failure);
          self->blocks_.onSuccess(withId(blobId, result));
        }));
  }

  /// Of a blob that cannot be downloaded as it is: when its file is there, that is what was wanted.
  void lookUp(const std::optional<std::string>& id, const ErrorPtr& refusal) {
    manager().getBinaryDataFilePathForPrimaryKeys(
        record_.keys, record_.database, record_.table, record_.column,
        blocks_.guarded([self = shared_from_this(), id, refusal](
                            const ErrorPtr&, const std::optional<std::string>& path) {
          const bool isThere = path && platform::fileKindAt(*path) == platform::FileKind::kRegular;
          if (!isThere) return self->blocks_.onFailure(refusal);
          self->blocks_.onSuccess(withId(id, Dictionary{{binary::kFilePath, *path}}));
        }));
  }

  void pauseAnswered(const std::optional<std::string>& id, const ErrorPtr& error,
                     const std::optional<Dictionary>& result) {
    if (error == nullptr) {
      return blocks_.onPaused(
          Dictionary{{kId, id ? Value(*id) : Value()}, {kResult, result ? *result : Value()}});
    }
    MutexLock lock(mutex_);
    // Not running yet, or just ending. The next tick asks again, until the limit.
    pauseIsAsked_ = false;
  }

  const BlobRecord record_;
  const Session::Blocks blocks_;
  platform::Mutex mutex_;
  std::optional<std::string> startedId_ VARO_GUARDED_BY(mutex_);
  /// Set by the interrupt.
  std::optional<std::chrono::steady_clock::time_point> giveUpAt_ VARO_GUARDED_BY(mutex_);
  bool pauseIsAsked_ VARO_GUARDED_BY(mutex_) = false;
};

std::uint64_t sizeOf(const std::string& path) {
  std::error_code failed;
  const std::uintmax_t size = std::filesystem::file_size(path, failed);
  return failed ? 0 : size;
}

std::string describeDownload(const Dictionary& result) {
  const std::string path = result[binary::kFilePath].textValue();
  const std::string size = formatBytes(sizeOf(path));
  // Only a download that ran names its blob.
  if (result.contains(binary::kBlobId)) {
    return fmt::format("Downloaded {} ({})\n", printable(path), size);
  }
  return fmt::format("{} ({}) was there already, nothing was fetched.\n", printable(path), size);
}

std::string describePause(const Dictionary& state) {
  const Dictionary result = state[kResult].dictionaryValue();
  const std::uint64_t total = static_cast<std::uint64_t>(
      std::max<std::int64_t>(0, result[binary::kTotalFileSize].integerValue()));
  const std::string size = formatBytes(sizeOf(result[binary::kFilePath].textValue()));
  return fmt::format("{} {} here. The same command resumes there.", size,
                     total == 0 ? "are" : fmt::format("of {} are", formatBytes(total)));
}

void declare(CommandArguments& arguments, BlobDownloadOptions& options) {
  declareBlobRecord(arguments, options.record);
  arguments.parsed("--config", options.config, readBlobConfiguration, Presence::kRequired);
}

int run(Session& session, const BlobDownloadOptions& options) {
  const BlobRecord& record = options.record;
  session.output().begin(record.name());
  std::shared_ptr<BlobDownload> download;
  const Outcome outcome = session.await(
      [&](const Session::Blocks& blocks) {
        download = std::make_shared<BlobDownload>(record, blocks);
        download->create(configOf(session, options));
      },
      [&] { return download->pause(); });
  return session.finish(
      outcome,
      {.success = describeDownload,
       .paused = describePause,
       .failure = [&](const Value& failure) { return describeBlobFailure(record, failure); },
       .about = {record.name()}});
}

}  // namespace

/// Downloads the binary column of a record into its file, from where an earlier run stopped. An
/// interrupt pauses the download.
Command makeBlobDownloadCommand() {
  return {.name = "blob download",
          .arguments = {},
          .summary = "bring the column of a record into a file, or resume that",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
