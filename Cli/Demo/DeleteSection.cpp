#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <string>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Value;

namespace {

/// How many files the service lists; none when it cannot be asked, which is recorded.
std::optional<std::size_t> countFiles(DemoStage& stage, const std::string& what) {
  const Outcome outcome = stage.operate("Listing", [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::getFilesWithUrl(stage.url(), "", DemoStage::headers(),
                                                blocks.onSuccess, blocks.onFailure, Dictionary());
  });
  const std::optional<Dictionary> result = stage.expectSuccess(outcome, what);
  if (!result) return std::nullopt;
  const Value& records = (*result)[binary::keys::kRecords];
  return records.isArray() ? records.array()->size() : 0;
}

Outcome deleteFile(DemoStage& stage, const std::string& id) {
  return stage.operate("Deleting", [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::deleteWithUrl(stage.url(), id, {}, DemoStage::headers(),
                                              blocks.onSuccess, blocks.onFailure, Dictionary());
  });
}

/// How often the service was asked how far it is, since its counters were cleared.
std::size_t statusRequests(DemoStage& stage) {
  const auto requests = stage.sandbox().requests();
  return static_cast<std::size_t>(
      std::count_if(requests.begin(), requests.end(), [](const sandbox::LoggedRequest& request) {
        return request.method == "GET" && request.path.ends_with("/operations");
      }));
}

/// Deletes a file that the service is made to take `polls` polls for, and checks that it is gone.
void deleteOne(DemoStage& stage, const UploadedFile& uploaded, const std::string& what,
               std::size_t polls) {
  const std::optional<std::size_t> before = countFiles(stage, what);
  if (!before) return;
  stage.sandbox().clearStats();
  if (!stage.expectSuccess(deleteFile(stage, uploaded.id), what)) return;
  const std::size_t asked = statusRequests(stage);
  const std::optional<std::size_t> after = countFiles(stage, what);
  if (!after) return;
  stage.record(asked == polls && *after + 1 == *before, what,
               fmt::format("{}, {} of {} files left, {} status requests", uploaded.file.name,
                           *after, *before, asked));
}

void deleteTheRest(DemoStage& stage) {
  const std::string what = "all others, by their namespace";
  const std::optional<std::size_t> before = countFiles(stage, what);
  if (!before) return;
  const Outcome outcome = stage.operate("Deleting", [&](const Session::Blocks& blocks) {
    BinaryFileStorageInterface::deleteByCriteria(
        stage.url(), Dictionary{{binary::keys::kFileNamespace, "demo"}}, DemoStage::headers(),
        blocks.onSuccess, blocks.onFailure, Dictionary());
  });
  if (!stage.expectSuccess(outcome, what)) return;
  const std::optional<std::size_t> after = countFiles(stage, what);
  if (after) stage.record(*after == 0, what, fmt::format("{} of {} files left", *after, *before));
}

}  // namespace

void showDeletes(DemoStage& stage) {
  stage.beginSection(
      "Deletes",
      "Files go by their id or by their metadata. A service may accept a delete for\n"
      "later: then it is asked, with growing pauses, whether it is done.");
  const auto& uploaded = stage.uploaded();
  if (uploaded.size() < 2) return;
  deleteOne(stage, uploaded[0], "by id, done at once", 0);
  if (stage.interrupted()) return;
  // One poll finds it unfinished: the pause before the second is a second at most.
  stage.sandbox().setDeletes({.mode = sandbox::DeleteKind::Mode::kAccepted, .polls = 1});
  deleteOne(stage, uploaded[1], "by id, accepted for later", 2);
  stage.sandbox().resetDeletes();
  if (!stage.interrupted()) deleteTheRest(stage);
}

}  // namespace varo::cli
