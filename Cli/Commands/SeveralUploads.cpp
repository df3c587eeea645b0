#include "Cli/Commands/SeveralUploads.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Run/ClientRun.h"
#include "Cli/Run/SideBySide.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Array.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;
namespace fs = std::filesystem;

namespace {

constexpr char kFile[] = "file";
constexpr char kFiles[] = "files";
constexpr char kSize[] = "file_size";

/// Of all files together; one that cannot be read counts as empty, and fails when its turn comes.
std::uint64_t sizeOf(const std::vector<std::string>& files) {
  std::uint64_t all = 0;
  for (const std::string& file : files) {
    std::error_code unknown;
    const std::uintmax_t size = fs::file_size(file, unknown);
    if (!unknown) all += size;
  }
  return all;
}

Dictionary uploaded(const FileRecord& record) {
  Dictionary result{{binary::keys::kFileId, record.id.text()},
                    {binary::keys::kFileName, record.name}};
  if (record.size) result.set(kSize, static_cast<std::int64_t>(record.size->count));
  return result;
}

}  // namespace

int uploadSeveral(Session& session, const std::string& url, const std::vector<std::string>& files,
                  const varo::UploadOptions& options) {
  const auto client = FileClient::create(clientOptions(session.options(), url));
  if (!client) {
    return session.finish({Outcome::Kind::kFailure, errorOf(client.error())}, {.about = {url}});
  }
  Batch batch;
  for (const std::string& file : files) {
    batch.items.push_back(
        {batch.items.size(), fs::path(file).filename().string(), Dictionary{{kFile, file}}});
  }
  batch.bytes = sizeOf(files);
  batch.start = [&](const Item& item, const ItemReports& reports) {
    return hold(client->upload(Source::file(files[item.number]), options), reports, &uploaded);
  };
  batch.success = [&](const Item& item, const Dictionary& result) {
    return fmt::format("Uploaded {} as {}\n", printable(files[item.number]),
                       printable(result[binary::keys::kFileId].textValue()));
  };
  batch.failure = [&](const Item& item, const Value& failure) {
    FailureText text = describeFailure(failure);
    const std::string& file = files[item.number];
    // The client knows its name alone, which others may have too.
    if (text.message.find(file) == std::string::npos) text.message += fmt::format(" ({})", file);
    return text;
  };
  const BatchEnd end = runSideBySide(session, batch);
  return session.finish(outcomeOf(end, kFiles, files.size(), kFiles, end.results.empty()),
                        {.success =
                             [&](const Dictionary&) {
                               return fmt::format("{} files, {}\n", files.size(),
                                                  formatBytes(*batch.bytes));
                             },
                         .failure = describeWithoutHint});
}

}  // namespace varo::cli
