#pragma once

#include "Platform/Foundation/File.h"
#include "Sandbox/Storage/DiskStore.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// Takes the bytes of one write to a `DiskStore`. What was there stays as it was until `finish`,
/// except that a chunk's bytes lie behind it. Used by one thread.
class DiskWriter {
 public:
  /// `sequence` is 0 for a write of the whole.
  DiskWriter(DiskStore& store, std::shared_ptr<void> lease, std::string key, std::uint64_t sequence,
             StoredBytes previous, StoredBytes next, std::shared_ptr<platform::File> file);
  ~DiskWriter();
  DiskWriter(const DiskWriter&) = delete;
  DiskWriter& operator=(const DiskWriter&) = delete;

  /// False when the bytes are too many for the chunk or cannot be written; `finish` says why.
  [[nodiscard]] bool write(std::string_view bytes);
  /// Makes the bytes count, or says why they do not.
  [[nodiscard]] std::optional<WriteProblem> finish();
  /// After `finish`.
  [[nodiscard]] const StoredBytes& state() const { return next_; }

 private:
  [[nodiscard]] bool isLaterChunk() const { return sequence_ > 1; }
  [[nodiscard]] bool becomeWholeContent();
  [[nodiscard]] std::optional<WriteProblem> checkLaterChunk() const;

  DiskStore& store_;
  const std::shared_ptr<void> lease_;
  const std::string key_;
  const std::uint64_t sequence_;
  const StoredBytes previous_;
  StoredBytes next_;
  const std::shared_ptr<platform::File> file_;
  const std::uint64_t offset_;
  std::uint64_t written_ = 0;
  bool holdsWholeContent_ = false;
  bool finished_ = false;
  std::optional<WriteProblem> problem_;
};

}  // namespace varo::sandbox
