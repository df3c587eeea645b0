#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Demo/DemoDownload.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/Error.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <optional>
#include <string>

namespace varo::cli {

using platform::Dictionary;

namespace {

/// Enough of a digest to tell files apart by eye.
constexpr std::size_t kShownDigits = 16;

void downloadAndCompare(DemoStage& stage, const UploadedFile& uploaded) {
  const DemoFile& file = uploaded.file;
  const std::string what = fmt::format("{:<31} {:>9}", file.name, formatBytes(file.size));
  const std::optional<Dictionary> result =
      stage.expectSuccess(downloadFile(stage, uploaded.id), what);
  if (!result) return;
  const std::string path = (*result)[binary::keys::kFilePath].textValue();
  const auto digest = digestOfFile(path);
  const bool same = digest && *digest == file.digest && sameBytes(path, file.path);
  const std::string detail =
      digest ? (same ? "identical" : "DIFFERENT") + (", SHA-256 " + digest->substr(0, kShownDigits))
             : digest.error()->localizedDescription();
  stage.record(same, what, detail, file.size);
}

/// A download again, and how many requests it took.
void downloadAgain(DemoStage& stage, const UploadedFile& uploaded, const std::string& what,
                   const Dictionary& options, std::uint64_t expectedRequests) {
  const std::uint64_t before = stage.sandbox().serviceStats().requests;
  const Outcome outcome = downloadFile(stage, uploaded.id, DemoStage::headers(), options);
  const std::optional<Dictionary> result = stage.expectSuccess(outcome, what);
  if (!result) return;
  const std::uint64_t requests = stage.sandbox().serviceStats().requests - before;
  const bool same = sameBytes((*result)[binary::keys::kFilePath].textValue(), uploaded.file.path);
  stage.record(same && requests == expectedRequests, what,
               fmt::format("{}, {} request{}", same ? "identical" : "DIFFERENT", requests,
                           requests == 1 ? "" : "s"));
}

}  // namespace

void showDownloads(DemoStage& stage) {
  stage.beginSection("Downloads",
                     "Every file comes down into a downloads directory, and is compared with what\n"
                     "went up, byte by byte. A file that is there already is not fetched again.");
  for (const UploadedFile& uploaded : stage.uploaded()) {
    if (stage.interrupted()) return;
    downloadAndCompare(stage, uploaded);
  }
  if (stage.uploaded().empty()) return;
  const UploadedFile& first = stage.uploaded().front();
  downloadAgain(stage, first, "again: only looked up", {}, 1);
  downloadAgain(stage, first, "again with forceDownload: fetched",
                {{binary::keys::kForceDownload, true}}, 2);
}

}  // namespace varo::cli
