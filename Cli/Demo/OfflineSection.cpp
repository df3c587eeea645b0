#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/SQLiteUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Demo/DemoBlob.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Cli/Failures/FailureText.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Foundation/File.h"
#include "Sandbox/Blobs/ExampleDatabase.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace varo::cli {

using binary::BinaryDataManager;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Value;
using sandbox::ExampleDatabase;

namespace {

/// Ids of the example's employees, each for what its photo is good for.
constexpr std::int64_t kSideBySide[] = {1, 4, 5, 6};  // in ranges, unknown size, whole, Base64
constexpr std::int64_t kCutOff = 2;                   // some ranges
constexpr std::int64_t kPaused = 3;                   // many ranges
constexpr std::int64_t kUnreadable = 7;

BinaryDataManager& manager() { return *BinaryDataManager::sharedInstance(); }

DemoBlob blobOf(DemoStage& stage, std::int64_t id) {
  return {stage, ExampleDatabase::employees()[static_cast<std::size_t>(id - 1)]};
}

std::uint64_t sizeAt(const std::string& path) {
  std::error_code failed;
  const std::uintmax_t size = std::filesystem::file_size(path, failed);
  return failed ? 0 : size;
}

bool makeDatabase(DemoStage& stage) {
  const std::string path = binary::SQLiteUtil::getDBPath(DemoBlob::kDatabase);
  const auto error = stage.sandbox().makeExampleDatabase(path);
  const std::string what = "an SQLite database of employees";
  const std::string detail = error ? error->message
                                   : fmt::format("{} records, none of the photos here yet",
                                                 ExampleDatabase::employees().size());
  stage.record(!error, what, detail);
  return !error;
}

/// Several downloads that count as one operation.
struct Group {
  explicit Group(std::size_t count) : missing(count), outcomes(count) {}

  platform::Mutex mutex;
  std::size_t missing VARO_GUARDED_BY(mutex);
  std::vector<Outcome> outcomes VARO_GUARDED_BY(mutex);
};

binary::DownloadBlock memberBlock(const std::shared_ptr<Group>& group, std::size_t index,
                                  const Session::Blocks& blocks) {
  return [=](const std::optional<std::string>&, const ErrorPtr& error,
             const std::optional<Dictionary>& result) {
    {
      MutexLock lock(group->mutex);
      group->outcomes[index] =
          error != nullptr ? Outcome{Outcome::Kind::kFailure, error}
                           : Outcome{Outcome::Kind::kSuccess, result.value_or(Dictionary())};
      if (--group->missing > 0) return;
    }
    blocks.onSuccess({});
  };
}

void downloadSideBySide(DemoStage& stage) {
  std::vector<DemoBlob> blobs;
  for (const std::int64_t id : kSideBySide) blobs.push_back(blobOf(stage, id));
  const auto group = std::make_shared<Group>(blobs.size());
  const Outcome all = stage.operate("Downloading", [&](const Session::Blocks& blocks) {
    for (std::size_t i = 0; i < blobs.size(); ++i) {
      blobs[i].download(memberBlock(group, i, blocks));
    }
  });
  if (all.kind != Outcome::Kind::kSuccess) return;  // interrupted
  MutexLock lock(group->mutex);
  for (std::size_t i = 0; i < blobs.size(); ++i) {
    const auto result = stage.expectSuccess(group->outcomes[i], blobs[i].label());
    if (!result) continue;
    const auto compared = blobs[i].compare((*result)[binary::kFilePath].textValue());
    stage.record(compared.same, blobs[i].label(), compared.text, blobs[i].size());
  }
}

/// A download that is asked to pause from its own progress block, at half of its bytes.
Outcome downloadHalf(DemoStage& stage, const DemoBlob& blob,
                     const std::shared_ptr<BlobStates>& states) {
  return stage.operate(blob.record().name(), [&](const Session::Blocks& blocks) {
    const auto isAsked = std::make_shared<std::atomic<bool>>(false);
    const auto onPaused = [=](const std::optional<std::string>& id, const ErrorPtr& error,
                              const std::optional<Dictionary>& result) {
      // Refused while the start is still being noted; the next chunk asks again.
      if (error != nullptr) return isAsked->store(false);
      states->look();
      blocks.onPaused(Dictionary{{"id", *id}, {"result", *result}});
    };
    const auto onChunk = [=](const std::string& id, std::int64_t written, std::int64_t total) {
      // The row follows the download: wait for it, so that the tour shows every state.
      (void)states->lookFor(binary::kDownloadStarted);
      if (written * 2 < total || isAsked->exchange(true)) return;
      manager().pauseDownload(id, onPaused);
    };
    blob.download(outcomeBlock(blocks),
                  {.onCreated = [states] { states->look(); }, .onChunk = onChunk});
  });
}

void pauseAndResume(DemoStage& stage) {
  const DemoBlob blob = blobOf(stage, kPaused);
  const auto states = std::make_shared<BlobStates>(blob.record());
  const Outcome half = downloadHalf(stage, blob, states);
  const std::string paused = blob.label() + ", paused half-way";
  if (half.kind != Outcome::Kind::kPaused) {
    if (stage.expectSuccess(half, paused)) stage.record(false, paused, "went on to its end");
    return;
  }
  const Dictionary state = half.value.dictionaryValue();
  const std::string path = state["result"].dictionaryValue()[binary::kFilePath].textValue();
  const std::uint64_t there = sizeAt(path);
  stage.record(there >= blob.size() / 2 && there < blob.size(), paused,
               formatBytes(there) + " are here", there);

  const std::string resumed = blob.label() + ", resumed";
  const Outcome whole = stage.operate(blob.record().name(), [&](const Session::Blocks& blocks) {
    manager().resumeDownload(state["id"].textValue(), outcomeBlock(blocks));
  });
  if (!stage.expectSuccess(whole, resumed)) return;
  states->look();
  const auto compared = blob.compare(path);
  stage.record(compared.same, resumed, compared.text, blob.size() - there);
  stage.record(states->text() == "101 -> 102 -> 104 -> 102 -> 50",
               "the states of its row on the way", states->text());
}

/// The range that the first of these requests asked for.
std::string firstRangeOf(const std::vector<sandbox::LoggedRequest>& requests) {
  const std::string* range = requests.empty() ? nullptr : requests.front().header("Range");
  return range == nullptr ? "no range" : *range;
}

void loseTheConnection(DemoStage& stage) {
  constexpr std::uint64_t kRangesBefore = 2;
  const std::uint64_t kept = kRangesBefore * DemoBlob::kChunkSize;
  const DemoBlob blob = blobOf(stage, kCutOff);
  sandbox::FaultRule rule;
  rule.match.path = "/binary";
  rule.match.skip = kRangesBefore;
  rule.match.count = 1;
  rule.action.cutAfter = 1000;
  stage.sandbox().addFault(rule);
  const Outcome broken = blob.await();
  stage.sandbox().clearFaults();
  const std::string lost = blob.label() + ", connection lost";
  if (broken.kind == Outcome::Kind::kSuccess) return stage.record(false, lost, "was not noticed");
  const auto after = blob.record().state();
  stage.record(after == binary::kDownloadErrored, lost,
               fmt::format("reported, row in state {}", after.value_or(0)));

  const std::string again = blob.label() + ", started again";
  stage.sandbox().clearStats();
  const auto result = stage.expectSuccess(blob.await(), again);
  if (!result) return;
  const std::string range = firstRangeOf(stage.sandbox().requests());
  const auto compared = blob.compare((*result)[binary::kFilePath].textValue());
  const bool goesOn = range.starts_with(fmt::format("bytes={}-", kept));
  const std::string detail = compared.same && goesOn
                                 ? fmt::format("identical, from byte {} on", kept)
                                 : fmt::format("{}, asked for {}", compared.text, range);
  stage.record(compared.same && goesOn, again, detail, blob.size() - kept);
}

void meetAnUnreadableObject(DemoStage& stage) {
  const DemoBlob blob = blobOf(stage, kUnreadable);
  const Outcome outcome = blob.await();
  const bool failed = outcome.kind == Outcome::Kind::kFailure;
  stage.record(failed, "one that the service cannot read",
               failed ? describeFailure(outcome.value).message : "was downloaded");
}

Outcome lookUp(DemoStage& stage, const BlobRecord& record) {
  return stage.operate(record.name(), [&](const Session::Blocks& blocks) {
    manager().getBinaryDataFilePathForPrimaryKeys(
        record.keys, record.database, record.table, record.column,
        [blocks](const ErrorPtr& error, const std::optional<std::string>& path) {
          if (error != nullptr) return blocks.onFailure(error);
          blocks.onSuccess(Dictionary{{binary::kFilePath, path.value_or("")}});
        });
  });
}

Outcome deleteBlob(DemoStage& stage, const BlobRecord& record) {
  return stage.operate(record.name(), [&](const Session::Blocks& blocks) {
    manager().deleteBinaryObjectForPrimaryKeys(
        record.keys, record.database, record.table, record.column,
        Dictionary{{binary::keys::kShouldDeleteBeforeSyncSession, true}},
        [blocks](const std::optional<std::string>&, bool recorded, bool removed,
                 const ErrorPtr& error) {
          if (error != nullptr) return blocks.onFailure(error);
          blocks.onSuccess(Dictionary{{"done", recorded && removed}});
        });
  });
}

void lookUpAndDelete(DemoStage& stage) {
  const DemoBlob blob = blobOf(stage, kCutOff);
  const std::string where = "where that file is";
  const auto found = stage.expectSuccess(lookUp(stage, blob.record()), where);
  if (!found) return;
  const std::string path = (*found)[binary::kFilePath].textValue();
  const bool below = path.starts_with(stage.directory() + "/home/");
  stage.record(below && sizeAt(path) == blob.size(), where,
               below ? path.substr(stage.directory().size() + 6) : path);

  const std::string gone = "deleted, with its file";
  const auto deleted = stage.expectSuccess(deleteBlob(stage, blob.record()), gone);
  if (!deleted) return;
  const auto state = blob.record().state();
  const bool ok = (*deleted)["done"].boolValue() && state == binary::kDeleteAccepted &&
                  platform::fileKindAt(path) == platform::FileKind::kNothing;
  stage.record(ok, gone, fmt::format("row in state {}, for the sync engine", state.value_or(0)));
}

}  // namespace

void showOfflineBlobs(DemoStage& stage) {
  stage.beginSection(
      "Offline blobs",
      "An application's database has records whose photos are on the service. They come down\n"
      "into files, side by side. A table in the database has the state of each: 101 made,\n"
      "102 running, 104 paused, 103 failed, 50 here, 201 to be deleted.");
  using Part = void (*)(DemoStage&);
  constexpr Part kParts[] = {downloadSideBySide, pauseAndResume, loseTheConnection,
                             meetAnUnreadableObject, lookUpAndDelete};
  if (!makeDatabase(stage)) return;
  for (const Part part : kParts) {
    if (!stage.interrupted()) part(stage);
  }
}

}  // namespace varo::cli
