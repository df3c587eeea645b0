#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Arguments/OutputArguments.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Run/OutputSink.h"
#include "Cli/Run/ReceiveMeter.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/UserDirectories.h"
#include "varo/files.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <variant>
#include <vector>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using SystemClock = std::chrono::system_clock;

namespace {

constexpr std::string_view kHelp =
    R"(Download a file into the downloads directory, or to where you say.

Usage: varobinary [GLOBAL] download URL FILE_ID [--namespace NS] [--security-key K]
           [-o FILE] [--if-exists fail|replace|keep|number]

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --namespace NS          namespace of the file
  --security-key K        key that protects the file
  -o, --output FILE       store it as FILE, or write it to standard output with '-'
                          (excludes --json); the directory of FILE must be there
  --if-exists WHAT        where the file is there already: fail (default with -o), replace
                          it, keep it and fetch nothing, or number the new one: "a (1).jpg"

The file is stored under the name that its record has, complete or not at all. A file of
that name that is there already is taken for the same one, and nothing is fetched; with
--option forceDownload=true it is fetched and replaced.
With -o or --if-exists the policy is always safe, and --option says nothing.

Examples:
  varobinary download $URL 5f2b90c1
  varobinary download $URL 5f2b90c1 -o photo.jpg --if-exists replace
  varobinary download $URL 5f2b90c1 -o - | tar tz
  varobinary --home ./inbox download $URL 5f2b90c1
  varobinary --json download $URL 5f2b90c1 | jq -r '.result.filePath // empty'
)";

struct DownloadOptions {
  std::string url;
  std::string fileId;
  std::optional<std::string> nameSpace;
  std::optional<std::string> securityKey;
  /// A file, or `kStandardOutput`; none: by the name of the record in the downloads directory.
  std::optional<std::string> output;
  /// None: as the library does it in the downloads directory, else `kFail`.
  std::optional<IfExists> ifExists;
};

/// The file system's clock runs in ticks of at most this.
constexpr std::chrono::milliseconds kClockTick{10};

constexpr char kKept[] = "kept";

Dictionary parametersOf(const Session& session, const DownloadOptions& options) {
  Dictionary metadata{{binary::keys::kFileId, options.fileId}};
  if (options.nameSpace) metadata.set(binary::keys::kFileNamespace, *options.nameSpace);
  if (options.securityKey) metadata.set(binary::keys::kSecurityKey, *options.securityKey);
  return {{binary::keys::kHeaders, session.options().headers}, {binary::keys::kMetadata, metadata}};
}

SystemClock::time_point timeOf(const timespec& time) {
  const auto since = std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
  return SystemClock::time_point(std::chrono::duration_cast<SystemClock::duration>(since));
}

/// Where the file is and how large. A file that nothing has happened to since `start` was there
/// already, and nothing was fetched.
std::string describe(const Dictionary& result, SystemClock::time_point start) {
  const std::string path = result[binary::keys::kFilePath].textValue();
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return fmt::format("Downloaded {}\n", printable(path));
  const std::string size = formatBytes(static_cast<std::uint64_t>(status.st_size));
  if (timeOf(status.st_ctim) + kClockTick < start) {
    return fmt::format(
        "{} ({}) was there already, nothing was fetched.\n"
        "To fetch it again: --option forceDownload=true\n",
        printable(path), size);
  }
  return fmt::format("Downloaded {} ({})\n", printable(path), size);
}

void declare(CommandArguments& arguments, DownloadOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.text("FILE_ID", options.fileId, Presence::kRequired);
  arguments.text("--namespace", options.nameSpace);
  arguments.text("--security-key", options.securityKey);
  declareOutput(arguments, options.output, options.ifExists);
  arguments.check([&global = arguments.global(), &options] {
    checkOutput(global, "download", options.output, options.ifExists);
  });
}

Outcome failed(platform::ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

/// Makes the downloads directory: the library does not make what is above it.
platform::Result<std::string> downloadsDirectory() {
  std::string directory = platform::UserDirectories::current()->downloads();
  std::error_code failed;
  std::filesystem::create_directories(directory, failed);
  if (!failed) return directory;
  return platform::Error::fromErrno(failed.value(), "cannot make the directory", directory);
}

varo::DownloadOptions clientOptionsOf(const DownloadOptions& options) {
  return {.ifExists = options.ifExists.value_or(IfExists::kFail),
          .range = {},
          .fileNamespace = options.nameSpace.value_or(""),
          .securityKey = options.securityKey.value_or("")};
}

/// The file's place in the downloads directory, by the name that its record has.
Outcome lookUpPlace(Session& session, const FileClient& client, const DownloadOptions& options) {
  Filter filter = field(binary::keys::kFileId) == options.fileId;
  if (options.nameSpace) {
    filter = filter && field(binary::keys::kFileNamespace) == *options.nameSpace;
  }
  if (options.securityKey) {
    filter = filter && field(binary::keys::kSecurityKey) == *options.securityKey;
  }
  Outcome found = awaitTransfer<std::vector<FileRecord>>(
      session, {}, [&] { return client.list(filter); },
      [](const std::vector<FileRecord>& records) {
        return platform::Value(records.empty() ? "" : records.front().name);
      });
  if (found.kind != Outcome::Kind::kSuccess) return found;
  const std::string name = found.value.textValue();
  if (name.empty()) {
    return failed(platform::Error::make(binary::kDownloadErrorDomain,
                                        binary::kCodeBinaryRecordDoesNotExist,
                                        fmt::format("there is no file {}", options.fileId)));
  }
  const auto directory = downloadsDirectory();
  if (!directory) return failed(directory.error());
  if (!platform::staysInDirectory(*directory, name)) {
    return failed(platform::Error::make(
        binary::kDownloadErrorDomain, binary::kCodeBinaryDownloadFailed,
        fmt::format("the record's name '{}' leads out of {}", name, *directory)));
  }
  const std::filesystem::path place = std::filesystem::path(*directory) / name;
  std::error_code none;
  std::filesystem::create_directories(place.parent_path(), none);
  return {Outcome::Kind::kSuccess, place.string()};
}

Outcome fetchTo(Session& session, const FileClient& client, const DownloadOptions& options,
                const Destination& to) {
  const auto* path = std::get_if<std::filesystem::path>(&to);
  // The client does not say whether it has kept the file.
  const bool isKept = path != nullptr && options.ifExists == IfExists::kKeep &&
                      platform::fileKindAt(path->string()) != platform::FileKind::kNothing;
  return awaitTransfer<std::filesystem::path>(
      session, options.fileId,
      [&] { return client.download(FileId(options.fileId), to, clientOptionsOf(options)); },
      [&](const std::filesystem::path& made) {
        return Dictionary{{binary::keys::kFileId, options.fileId},
                          {binary::keys::kFilePath, made.string()},
                          {kKept, isKept}};
      });
}

std::string describeFetched(const Dictionary& result) {
  const std::string path = result[binary::keys::kFilePath].textValue();
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(path, unknown);
  const std::string file =
      printable(path) + (unknown ? std::string() : fmt::format(" ({})", formatBytes(size)));
  if (!result[kKept].boolValue()) return fmt::format("Downloaded {}\n", file);
  return fmt::format(
      "{} was there already, nothing was fetched.\nTo fetch it again: --if-exists replace\n", file);
}

/// The download with -o or --if-exists, which the typed client does.
Outcome fetch(Session& session, const DownloadOptions& options) {
  const auto client = FileClient::create(clientOptions(session.options(), options.url));
  if (!client) return failed(errorOf(client.error()));
  if (options.output == kStandardOutput) {
    const OutputSink sink(session);
    return sink.concluded(fetchTo(session, *client, options, sink.sink()));
  }
  if (options.output) {
    return fetchTo(session, *client, options, std::filesystem::path(*options.output));
  }
  Outcome place = lookUpPlace(session, *client, options);
  if (place.kind != Outcome::Kind::kSuccess) return place;
  return fetchTo(session, *client, options, std::filesystem::path(place.value.textValue()));
}

FailureText describeFetchFailure(const platform::Value& failure) {
  FailureText text = describeFailure(failure);
  if (text.facts.kind == nameOf(Kind::kConflict)) {
    text.hint = "--if-exists replace, keep or number says what else to do.";
  }
  return text;
}

int run(Session& session, const DownloadOptions& options) {
  const SystemClock::time_point start = SystemClock::now();
  const std::vector<std::string> about{options.fileId, options.url};
  if (options.output || options.ifExists) {
    session.output().begin(options.fileId);
    const bool isStream = options.output == kStandardOutput;
    return session.finish(fetch(session, options), {.success =
                                                        [&](const Dictionary& result) {
                                                          return isStream ? std::string()
                                                                          : describeFetched(result);
                                                        },
                                                    .failure = describeFetchFailure,
                                                    .about = about});
  }
  if (const auto directory = downloadsDirectory(); !directory) {
    return session.finish(failed(directory.error()));
  }
  const auto settings = session.settings();
  // The library reports no bytes of a file on its way.
  const auto count = std::make_shared<ByteCount>();
  settings->transport = std::make_shared<ReceiveMeter>(settings->transport, count);
  return session.perform(
      options.fileId,
      [&](const Session::Blocks& blocks) {
        BinaryFileStorageInterface::downloadWithURL(
            options.url, parametersOf(session, options), blocks.onSuccess, blocks.onFailure,
            blocks.onProgress, session.operationOptions(settings));
      },
      {.success = [&](const Dictionary& result) { return describe(result, start); },
       .about = about},
      [&, told = std::uint64_t{0}]() mutable {
        const std::uint64_t done = count->done;
        if (std::exchange(told, done) == done) return;
        session.output().chunk(options.fileId, static_cast<std::int64_t>(done),
                               static_cast<std::int64_t>(count->total));
      });
}

}  // namespace

/// Downloads one file into the downloads directory.
Command makeDownloadCommand() {
  return {.name = "download",
          .arguments = "URL FILE_ID",
          .summary = "download a file into the downloads directory",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
