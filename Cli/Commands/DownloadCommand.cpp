#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/UserDirectories.h"

#include <fmt/format.h>

#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <sys/stat.h>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using SystemClock = std::chrono::system_clock;

namespace {

constexpr std::string_view kHelp =
    R"(Download a file into the downloads directory.

Usage: varobinary [GLOBAL] download URL FILE_ID [--namespace NS] [--security-key K]

  URL                     base URL of the object service
  FILE_ID                 id of the file, as 'list' and 'upload' print it
  --namespace NS          namespace of the file
  --security-key K        key that protects the file

The file is stored under the name that its record has, complete or not at all. A file of
that name that is there already is taken for the same one, and nothing is fetched; with
--option forceDownload=true it is fetched and replaced.

Examples:
  varobinary download $URL 5f2b90c1
  varobinary --home ./inbox download $URL 5f2b90c1
  varobinary --json download $URL 5f2b90c1 | jq -r '.result.filePath // empty'
)";

struct DownloadOptions {
  std::string url;
  std::string fileId;
  std::optional<std::string> nameSpace;
  std::optional<std::string> securityKey;
};

/// The file system's clock runs in ticks of at most this.
constexpr std::chrono::milliseconds kClockTick{10};

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
  arguments.text("URL", options.url, Presence::kRequired);
  arguments.text("FILE_ID", options.fileId, Presence::kRequired);
  arguments.text("--namespace", options.nameSpace);
  arguments.text("--security-key", options.securityKey);
}

int run(Session& session, const DownloadOptions& options) {
  const SystemClock::time_point start = SystemClock::now();
  // The library makes the downloads directory but not what is above it.
  const std::string directory = platform::UserDirectories::current()->downloads();
  std::error_code failed;
  std::filesystem::create_directories(directory, failed);
  if (failed) {
    const platform::ErrorPtr error =
        platform::Error::fromErrno(failed.value(), "cannot make the directory", directory);
    return session.finish({Outcome::Kind::kFailure, error});
  }
  return session.perform(
      "Downloading " + options.fileId,
      [&](const Session::Blocks& blocks) {
        BinaryFileStorageInterface::downloadWithURL(options.url, parametersOf(session, options),
                                                    blocks.onSuccess, blocks.onFailure,
                                                    blocks.onProgress, session.options().options);
      },
      [&](const Dictionary& result) { return describe(result, start); });
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
