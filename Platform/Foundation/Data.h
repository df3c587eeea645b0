#pragma once

#include "Platform/Foundation/Result.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace varo::platform {

class File;

/// An immutable run of bytes, backed by memory or by a region of a file.
///
/// Copying and slicing share the bytes. Code that only hashes, sends or stores bytes reads them
/// piece by piece with `read` and so needs the same memory for any size. A file-backed `Data` keeps
/// the file open (an unlinked file stays readable until the last `Data` on it is gone); it reads
/// with positioned reads, so a file that shrinks under it gives an error value, not a fault.
///
/// Thread-safe: any number of threads may read one instance at once.
class Data {
 public:
  /// No bytes; size 0.
  Data() noexcept = default;
  Data(const Data&) noexcept = default;
  /// `other` has no bytes afterwards.
  Data(Data&& other) noexcept;
  Data& operator=(const Data&) noexcept = default;
  Data& operator=(Data&& other) noexcept;
  ~Data() = default;

  /// Takes over `bytes`.
  [[nodiscard]] static Data fromBytes(std::string bytes);
  /// The bytes of a string that nobody changes any more.
  [[nodiscard]] static Data sharing(std::shared_ptr<const std::string> bytes);
  [[nodiscard]] static Data copyOf(std::span<const std::byte> bytes);

  /// The whole of the regular file at `path`, as large as it is now. Nothing is loaded.
  /// Errors: domain "POSIX" with `errno` (missing, no permission, not a regular file).
  [[nodiscard]] static Result<Data> fromFile(const std::string& path);

  /// `length` bytes of `file` from `offset`. The region is not checked against the file's size;
  /// reading past its end is an error of `read`.
  [[nodiscard]] static Data fromFileRegion(std::shared_ptr<const File> file, std::uint64_t offset,
                                           std::uint64_t length);

  /// Bytes.
  [[nodiscard]] std::uint64_t size() const noexcept { return length_; }
  [[nodiscard]] bool empty() const noexcept { return length_ == 0; }

  /// The bytes [offset, offset + length), cut to what there is.
  [[nodiscard]] Data slice(std::uint64_t offset, std::uint64_t length) const;

  /// The bytes themselves when they are in memory, else nothing. Valid while this `Data` lives.
  [[nodiscard]] std::optional<std::string_view> memory() const noexcept;

  /// The file behind this, or null when the bytes are in memory, and where in it they start.
  [[nodiscard]] const std::shared_ptr<const File>& file() const noexcept { return file_; }
  [[nodiscard]] std::uint64_t fileOffset() const noexcept { return offset_; }

  /// Reads from `offset` until `buffer` is full or the data ends; returns the number of bytes.
  /// Errors: domain "POSIX"; a file that has become shorter than this data is EIO.
  [[nodiscard]] Result<std::size_t> read(std::uint64_t offset, std::span<char> buffer) const;

  /// Passes all bytes to `consume`, in order: those in memory at once, those of a file in pieces of
  /// up to 256 KiB. Ends early with the error that `consume` returns, or that of `read`.
  [[nodiscard]] Result<void> forEachPiece(
      const std::function<Result<void>(std::string_view piece)>& consume) const;

  /// All bytes as one string; EFBIG where there are more than `limit`.
  [[nodiscard]] Result<std::string> readAll(std::uint64_t limit) const;

  /// Length and the first bytes in hexadecimal, never the whole.
  [[nodiscard]] std::string description() const;

  /// Compares the bytes, piece by piece. Bytes that cannot be read are equal to nothing.
  friend bool operator==(const Data& left, const Data& right);

 private:
  // Exactly one of the two is set, except in empty data. Constant after construction.
  std::shared_ptr<const std::string> bytes_;
  std::shared_ptr<const File> file_;
  std::uint64_t offset_ = 0;
  std::uint64_t length_ = 0;
};

}  // namespace varo::platform
