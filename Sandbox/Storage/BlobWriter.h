#pragma once

#include "Sandbox/Storage/ByteStore.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// Takes the bytes of one write to a `ByteStore`. What was there stays as it was until `finish`,
/// except that a chunk's bytes lie behind it. Used by one thread.
class BlobWriter {
 public:
  /// `sequence` is 0 for a write of the whole.
  BlobWriter(ByteStore& store, std::shared_ptr<void> lease, std::string key, std::uint64_t sequence,
             BlobState previous, BlobState next, std::shared_ptr<DiskFile> file);
  ~BlobWriter();
  BlobWriter(const BlobWriter&) = delete;
  BlobWriter& operator=(const BlobWriter&) = delete;

  /// False when the bytes are too many for the chunk or cannot be written; `finish` says why.
  [[nodiscard]] bool write(std::string_view bytes);
  /// Makes the bytes count, or says why they do not.
  [[nodiscard]] std::optional<WriteProblem> finish();
  /// After `finish`.
  [[nodiscard]] const BlobState& state() const { return next_; }

 private:
  [[nodiscard]] bool isLaterChunk() const { return sequence_ > 1; }
  [[nodiscard]] bool becomeWholeContent();
  [[nodiscard]] std::optional<WriteProblem> checkLaterChunk() const;

  ByteStore& store_;
  const std::shared_ptr<void> lease_;
  const std::string key_;
  const std::uint64_t sequence_;
  const BlobState previous_;
  BlobState next_;
  const std::shared_ptr<DiskFile> file_;
  const std::uint64_t offset_;
  std::uint64_t written_ = 0;
  bool holdsWholeContent_ = false;
  bool finished_ = false;
  std::optional<WriteProblem> problem_;
};

}  // namespace varo::sandbox
