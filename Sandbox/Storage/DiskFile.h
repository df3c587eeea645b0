#pragma once

#include "Sandbox/Storage/ByteSource.h"

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// An open file, closed with its last owner. Positioned access only, so threads may share it.
class DiskFile final : public ByteSource {
 public:
  enum class Mode { kRead, kReadWrite, kTruncate };

  /// Null when the file cannot be opened; `errno` says why. Never follows a symbolic link.
  [[nodiscard]] static std::shared_ptr<DiskFile> open(const std::string& path, Mode mode);

  explicit DiskFile(int descriptor) : descriptor_(descriptor) {}
  ~DiskFile() override;
  DiskFile(const DiskFile&) = delete;
  DiskFile& operator=(const DiskFile&) = delete;

  [[nodiscard]] std::int64_t readAt(std::uint64_t offset, std::span<char> buffer) const override;
  [[nodiscard]] bool writeAt(std::uint64_t offset, std::string_view bytes);
  [[nodiscard]] bool truncate(std::uint64_t size);
  /// Copies `length` bytes from `from` to `to`; the two regions must not overlap.
  [[nodiscard]] bool copyWithin(std::uint64_t from, std::uint64_t to, std::uint64_t length);

 private:
  const int descriptor_;
};

}  // namespace varo::sandbox
