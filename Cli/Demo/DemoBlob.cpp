#include "Cli/Demo/DemoBlob.h"

#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Demo/DemoFile.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Block.h"
#include "Platform/Foundation/Error.h"
#include "Sandbox/Blobs/ExampleDatabase.h"
#include "Sandbox/Blobs/GeneratedBytes.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <chrono>
#include <thread>
#include <utility>

namespace varo::cli {

using binary::BinaryDataManager;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::MutexLock;
using platform::Result;
using platform::Value;
using sandbox::ExampleDatabase;

namespace {

/// Enough of a digest to tell files apart by eye.
constexpr std::size_t kShownDigits = 16;
/// A row follows its download within milliseconds, or a slow disk's time to write.
constexpr std::chrono::seconds kLookLimit{5};
constexpr std::chrono::milliseconds kLookInterval{1};

BlobRecord recordOf(const sandbox::ExampleEmployee& employee) {
  return {DemoBlob::kDatabase, ExampleDatabase::kTable, ExampleDatabase::kPhotoColumn,
          Dictionary{{ExampleDatabase::kKeyColumn, std::to_string(employee.id)}}};
}

/// SHA-256 of what the service generates.
Result<std::string> digestOfGenerated(std::uint64_t seed, std::uint64_t size) {
  const sandbox::GeneratedBytes bytes(seed, size);
  platform::Sha256 hash;
  std::vector<char> piece(DemoBlob::kChunkSize);
  std::uint64_t offset = 0;
  while (const std::int64_t count = bytes.readAt(offset, piece)) {
    hash.update({piece.data(), static_cast<std::size_t>(count)});
    offset += static_cast<std::uint64_t>(count);
  }
  const auto digest = hash.finish();
  if (!digest) return digest.error();
  return digest->hex();
}

}  // namespace

DemoBlob::DemoBlob(DemoStage& stage, const sandbox::ExampleEmployee& employee)
    : stage_(stage),
      record_(recordOf(employee)),
      size_(employee.photo.size),
      seed_(employee.photo.seed),
      isBase64_(employee.mode == sandbox::BlobObject::Mode::kBase64),
      label_(fmt::format("{:<12} {:>9}", employee.name, formatBytes(size_))) {}

void DemoBlob::download(binary::DownloadBlock done, DemoBlobHooks hooks) const {
  Dictionary config{{binary::kURL, stage_.sandbox().blobUrl()},
                    {binary::kScopeName, ExampleDatabase::kScope},
                    {binary::kObjectName, ExampleDatabase::kTable},
                    {binary::kChunkSizeKey, kChunkSize},
                    {binary::kDownloadHeaders, DemoStage::headers()},
                    {binary::kResponseType, isBase64_ ? "Base64" : "Binary"}};
  if (hooks.onChunk) {
    config.set(binary::kOnChunkDownloadCompleted,
               std::make_shared<binary::OnChunkDownloadCompleted>(
                   [onChunk = std::move(hooks.onChunk)](const std::string& id, std::int64_t written,
                                                        std::int64_t total, const Value&) {
                     onChunk(id, written, total);
                   }));
  }
  BinaryDataManager::sharedInstance()->createDownloadTaskForDb(
      record_.database, record_.table, record_.column, record_.keys, config,
      [done = std::move(done), onCreated = std::move(hooks.onCreated)](
          const ErrorPtr& error, const std::optional<std::string>& id) {
        if (error != nullptr) return done(id, error, std::nullopt);
        if (onCreated) onCreated();
        BinaryDataManager::sharedInstance()->startDownload(id, done);
      });
}

Outcome DemoBlob::await() const {
  return stage_.operate(record_.name(),
                        [&](const Session::Blocks& blocks) { download(outcomeBlock(blocks)); });
}

DemoBlob::Comparison DemoBlob::compare(const std::string& path) const {
  const Result<std::string> found = digestOfFile(path);
  const Result<std::string> expected = digestOfGenerated(seed_, size_);
  if (!found || !expected) {
    return {false, (found ? expected : found).error()->localizedDescription()};
  }
  const bool same = *found == *expected;
  return {same,
          (same ? "identical" : "DIFFERENT") + (", SHA-256 " + found->substr(0, kShownDigits))};
}

std::int64_t BlobStates::look() {
  const std::int64_t state = record_.state().value_or(0);
  MutexLock lock(mutex_);
  if (states_.empty() || states_.back() != state) states_.push_back(state);
  return state;
}

bool BlobStates::lookFor(std::int64_t state) {
  const auto end = std::chrono::steady_clock::now() + kLookLimit;
  while (look() != state) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kLookInterval);
  }
  return true;
}

std::string BlobStates::text() const {
  MutexLock lock(mutex_);
  return fmt::format("{}", fmt::join(states_, " -> "));
}

binary::DownloadBlock outcomeBlock(const Session::Blocks& blocks) {
  return [blocks](const std::optional<std::string>&, const ErrorPtr& error,
                  const std::optional<Dictionary>& result) {
    if (error != nullptr) return blocks.onFailure(error);
    blocks.onSuccess(result.value_or(Dictionary()));
  };
}

}  // namespace varo::cli
