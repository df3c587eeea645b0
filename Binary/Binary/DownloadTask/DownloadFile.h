#pragma once

#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Result.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace varo::binary {

/// The file that one download fills from the first byte to the last, without a gap. Whenever it
/// stops, the file holds the first bytes of the object.
///
/// With a claim it fills the claimed file. Without one it locks the file from the first write until
/// `release`, so that no other download, in this process or another, writes it in the meantime.
/// Errors: domain "POSIX", with the path. Not thread-safe.
class DownloadFile {
 public:
  /// Whether a write may begin behind the end of the file, and so leave a gap.
  enum class Gaps { kRefused, kAllowed };

  /// Uses the claim until `release`; null for none.
  void setClaim(std::shared_ptr<FileClaim> claim) { claim_ = std::move(claim); }
  [[nodiscard]] const std::shared_ptr<FileClaim>& claim() const noexcept { return claim_; }

  /// Makes a new, empty file at `path`, and this object that file's.
  [[nodiscard]] platform::Result<void> create(const std::string& path);

  /// Cuts the file at `path` to `offset` bytes and appends `bytes`. Returns the size of the file.
  /// Bytes that could not be written completely are cut off again. Errors:
  /// - EBUSY: another download has the file;
  /// - ENODATA: the file has fewer than `offset` bytes;
  /// - ESTALE: another file has taken its place since the last write.
  [[nodiscard]] platform::Result<std::uint64_t> write(const std::string& path, std::uint64_t offset,
                                                      const platform::Data& bytes, Gaps gaps);
  /// Whether a file is open and locked.
  [[nodiscard]] bool isOpen() const noexcept { return _fileHandle != nullptr; }
  /// What has to be synchronised so that all bytes are on the disk: the open file, else the one at
  /// `path`, which is opened; null where they are there. May be used on another thread, also after
  /// `release`.
  struct Unsynced {
    std::shared_ptr<const platform::File> file;
    std::uint64_t writes = 0;  // that came before
  };
  [[nodiscard]] platform::Result<Unsynced> unsynced(const std::string& path);
  /// That file is synchronised now; what was written since then is not.
  void noteSynced(const Unsynced& synced) noexcept;
  /// Empties the file: its bytes are not those of the object any more.
  [[nodiscard]] platform::Result<void> empty(const std::string& path);
  /// Bytes in the file; 0 where there is none.
  [[nodiscard]] static std::uint64_t sizeAt(const std::string& path);

  /// Closes and unlocks the file, and forgets the claim, which its owner releases.
  void release();

 private:
  [[nodiscard]] platform::Result<void> open(const std::string& path);
  [[nodiscard]] platform::Result<void> append(std::uint64_t offset, const platform::Data& bytes);

  [[nodiscard]] platform::Result<void> lock(const platform::File& file) const;
  void close();

  std::shared_ptr<FileClaim> claim_;
  std::shared_ptr<platform::File> _fileHandle;
  std::uint64_t writes_ = 0;
  /// How many of them are on the disk; none: nobody knows, of the file that is open now.
  std::optional<std::uint64_t> syncedWrites_;
  std::uint64_t unsent_ = 0;  // position up to which the system was asked to write to the disk
};

}  // namespace varo::binary
