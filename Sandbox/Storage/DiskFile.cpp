#include "Sandbox/Storage/DiskFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace varo::sandbox {
namespace {

constexpr std::size_t kCopyBlock = 1024 * 1024;

}  // namespace

std::shared_ptr<DiskFile> DiskFile::open(const std::string& path, Mode mode) {
  int flags = O_CLOEXEC | O_NOFOLLOW;
  flags |= mode == Mode::kRead ? O_RDONLY : O_RDWR | O_CREAT;
  if (mode == Mode::kTruncate) flags |= O_TRUNC;
  const int descriptor = ::open(path.c_str(), flags, S_IRUSR | S_IWUSR);
  return descriptor < 0 ? nullptr : std::make_shared<DiskFile>(descriptor);
}

DiskFile::~DiskFile() { ::close(descriptor_); }

std::int64_t DiskFile::readAt(std::uint64_t offset, std::span<char> buffer) const {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t n = ::pread(descriptor_, buffer.data() + done, buffer.size() - done,
                              static_cast<off_t>(offset + done));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) return -1;
    if (n == 0) break;
    done += static_cast<std::size_t>(n);
  }
  return static_cast<std::int64_t>(done);
}

bool DiskFile::writeAt(std::uint64_t offset, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t n = ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(n));
    offset += static_cast<std::uint64_t>(n);
  }
  return true;
}

bool DiskFile::truncate(std::uint64_t size) {
  return ::ftruncate(descriptor_, static_cast<off_t>(size)) == 0;
}

bool DiskFile::copyWithin(std::uint64_t from, std::uint64_t to, std::uint64_t length) {
  std::vector<char> block(static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, length)));
  while (length > 0) {
    const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(block.size(), length));
    if (readAt(from, {block.data(), piece}) != static_cast<std::int64_t>(piece)) return false;
    if (!writeAt(to, {block.data(), piece})) return false;
    from += piece;
    to += piece;
    length -= piece;
  }
  return true;
}

}  // namespace varo::sandbox
