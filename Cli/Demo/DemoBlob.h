#pragma once

#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Cli/Arguments/BlobRecord.h"
#include "Cli/Demo/DemoStage.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace varo::sandbox {
struct ExampleEmployee;
}

namespace varo::cli {

/// What the tour hears of a download on its way.
struct DemoBlobHooks {
  /// Called when the download is made and before it starts.
  std::function<void()> onCreated{};
  /// Called as bytes are stored: how many are in the file, of how many.
  std::function<void(const std::string& id, std::int64_t bytesWritten, std::int64_t totalSize)>
      onChunk{};
};

/// The photo of one of the example database's employees, as the tour brings it down. The blocks
/// that it hands to the library keep what they need alive, so they may come late.
class DemoBlob {
 public:
  /// The database's name, as the library takes it.
  static constexpr const char* kDatabase = "staff.db";
  /// Bytes of a range: small enough that all but the smallest photos come in several.
  static constexpr std::uint64_t kChunkSize = std::uint64_t{512} * 1024;

  DemoBlob(DemoStage& stage, const sandbox::ExampleEmployee& employee);

  [[nodiscard]] const BlobRecord& record() const noexcept { return record_; }
  /// "Ann Archer     293.0 KiB": the name and the size of the photo.
  [[nodiscard]] const std::string& label() const noexcept { return label_; }
  [[nodiscard]] std::uint64_t size() const noexcept { return size_; }

  /// Makes the download and starts it. `done` hears of the end of either.
  void download(binary::DownloadBlock done, DemoBlobHooks hooks = {}) const;
  /// Runs a download to its outcome; a success is {"BlobID", "FilePath", ...}.
  [[nodiscard]] Outcome await() const;

  /// Whether the file at `path` holds the photo; "identical, SHA-256 ..." or what is wrong.
  struct Comparison {
    bool same = false;
    std::string text;
  };
  [[nodiscard]] Comparison compare(const std::string& path) const;

 private:
  DemoStage& stage_;
  const BlobRecord record_;
  const std::uint64_t size_;
  const std::uint64_t seed_;
  const bool isBase64_;
  const std::string label_;
};

/// The states that the row of a blob passes through, each looked up in the database. Thread-safe.
class BlobStates {
 public:
  explicit BlobStates(BlobRecord record) : record_(std::move(record)) {}

  /// Notes the state if it is another one than before, and returns it.
  std::int64_t look();
  /// Looks until the state is `state`; false when it has not become that after some seconds.
  bool lookFor(std::int64_t state);
  /// "101 -> 102 -> 50".
  [[nodiscard]] std::string text() const;

 private:
  const BlobRecord record_;
  mutable platform::Mutex mutex_;
  std::vector<std::int64_t> states_ VARO_GUARDED_BY(mutex_);
};

/// A block of the library whose error or result becomes an outcome through `blocks`.
[[nodiscard]] binary::DownloadBlock outcomeBlock(const Session::Blocks& blocks);

}  // namespace varo::cli
