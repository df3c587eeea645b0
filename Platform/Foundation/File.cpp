#include "Platform/Foundation/File.h"

#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace varo::platform {
namespace {

/// Names the library's own temporary files carry; nothing else is ever removed.
constexpr std::string_view kTemporaryPrefix = ".varo-";
constexpr std::size_t kCopyBlock = std::size_t{512} * 1024;

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string temporaryName(const std::string& directory) {
  static std::atomic<std::uint64_t> counter{0};
  return fmt::format("{}/{}{}-{}", directory, kTemporaryPrefix, ::getpid(),
                     counter.fetch_add(1, std::memory_order_relaxed));
}

/// A temporary file with a name, removed unless it was renamed to its final one.
class TemporaryName {
 public:
  explicit TemporaryName(std::string path) : path_(std::move(path)) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  ~TemporaryName() {
    if (owned_) ::unlink(path_.c_str());
  }

  /// From here on there is a file of ours under the name.
  void own() noexcept { owned_ = true; }

  [[nodiscard]] Result<void> renameTo(const std::string& path) {
    if (::rename(path_.c_str(), path.c_str()) != 0) {
      return Error::fromErrno(errno, "Storing", path);
    }
    owned_ = false;
    return {};
  }

 private:
  const std::string path_;
  bool owned_ = false;
};

/// Gives a nameless file a name. Fails where the file system cannot do it.
bool giveName(const File& file, const std::string& path) {
  // AT_EMPTY_PATH would need a privilege; the link in /proc does the same without one.
  const std::string source = fmt::format("/proc/self/fd/{}", file.descriptor());
  return ::linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW) == 0;
}

Result<void> copyThroughMemory(const Data& data, std::uint64_t offset, File& target) {
  std::vector<char> block(std::min<std::uint64_t>(kCopyBlock, data.size() - offset));
  while (offset < data.size()) {
    const auto count = data.read(offset, block);
    if (!count) return count.error();
    const auto written = target.writeAt(offset, std::string_view(block.data(), *count));
    if (!written) return written;
    offset += *count;
  }
  return {};
}

Result<void> copyInto(const Data& data, File& target) {
  if (const auto bytes = data.memory()) return target.writeAt(0, *bytes);
  std::uint64_t copied = 0;
  while (copied < data.size()) {
    auto from = static_cast<off_t>(data.fileOffset() + copied);
    auto to = static_cast<off_t>(copied);
    const ssize_t count = ::copy_file_range(data.file()->descriptor(), &from, target.descriptor(),
                                            &to, data.size() - copied, 0);
    // Across some file systems the kernel cannot copy; a short file shows up as 0 here.
    if (count <= 0) return copyThroughMemory(data, copied, target);
    copied += static_cast<std::uint64_t>(count);
  }
  return {};
}

/// Whether `data` is all of a nameless file on the file system of `directory`, so that the file
/// itself can become the stored one.
bool canTakeOver(const Data& data, const std::string& directory) {
  if (data.file() == nullptr || data.fileOffset() != 0) return false;
  struct stat source {};
  struct stat target {};
  if (::fstat(data.file()->descriptor(), &source) != 0) return false;
  if (::stat(directory.c_str(), &target) != 0) return false;
  return source.st_nlink == 0 && source.st_dev == target.st_dev &&
         static_cast<std::uint64_t>(source.st_size) == data.size();
}

int hexDigit(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// Undoes one level of percent-encoding in place; whether there was any.
bool percentDecode(std::string& text) {
  std::string decoded;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const int high = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
    const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
    if (low >= 0) {
      decoded += static_cast<char>(high * 16 + low);
      i += 2;
    } else {
      decoded += text[i];
    }
  }
  const bool changed = decoded.size() != text.size();
  text = std::move(decoded);
  return changed;
}

bool isPlainRelativePath(std::string_view name) noexcept {
  if (name.empty() || name.front() == '/') return false;
  if (name.find('\\') != std::string_view::npos || name.find('\0') != std::string_view::npos) {
    return false;
  }
  while (true) {
    const std::size_t slash = name.find('/');
    const std::string_view component = name.substr(0, slash);
    if (component.empty() || component == "." || component == "..") return false;
    if (slash == std::string_view::npos) return true;
    name.remove_prefix(slash + 1);
  }
}

}  // namespace

File::File(Badge /*badge*/, int descriptor, std::string path)
    : descriptor_(descriptor), path_(std::move(path)) {}

File::~File() { ::close(descriptor_); }

Result<std::shared_ptr<const File>> File::openForReading(const std::string& path) {
  // Without O_NONBLOCK, opening a FIFO would wait for its writer.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return Error::fromErrno(errno, "Opening", path);
  auto file = std::make_shared<const File>(Badge{}, descriptor, path);
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return Error::fromErrno(errno, "Opening", path);
  if (S_ISDIR(status.st_mode)) return Error::fromErrno(EISDIR, "Opening", path);
  if (!S_ISREG(status.st_mode)) return Error::fromErrno(EINVAL, "Opening", path);
  return file;
}

Result<std::shared_ptr<File>> File::createUnnamed(const std::string& directory) {
  int descriptor = ::open(directory.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0) {
    // Not every file system has nameless files; a named one whose name is gone at once does as
    // well.
    std::string name = fmt::format("{}/{}XXXXXX", directory, kTemporaryPrefix);
    descriptor = ::mkostemp(name.data(), O_CLOEXEC);
    if (descriptor < 0) return Error::fromErrno(errno, "Creating a file in", directory);
    ::unlink(name.c_str());
  }
  return std::make_shared<File>(Badge{}, descriptor, directory);
}

Result<std::shared_ptr<File>> File::createNew(const std::string& path) {
  const int descriptor =
      ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR);
  if (descriptor < 0) return Error::fromErrno(errno, "Creating", path);
  return std::make_shared<File>(Badge{}, descriptor, path);
}

Result<std::uint64_t> File::size() const {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) return Error::fromErrno(errno, "Reading", path_);
  return static_cast<std::uint64_t>(status.st_size);
}

Result<std::size_t> File::readAt(std::uint64_t offset, std::span<char> buffer) const {
  std::size_t done = 0;
  while (done < buffer.size()) {
    const ssize_t count = ::pread(descriptor_, buffer.data() + done, buffer.size() - done,
                                  static_cast<off_t>(offset + done));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Error::fromErrno(errno, "Reading", path_);
    if (count == 0) break;
    done += static_cast<std::size_t>(count);
  }
  return done;
}

Result<void> File::writeAt(std::uint64_t offset, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count =
        ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return Error::fromErrno(errno, "Writing", path_);
    offset += static_cast<std::uint64_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

Result<void> storeFile(const std::string& path, const Data& data) {
  struct stat existing {};
  const bool replaces = ::lstat(path.c_str(), &existing) == 0;
  if (replaces && !S_ISREG(existing.st_mode)) {
    return Error::fromErrno(S_ISDIR(existing.st_mode) ? EISDIR : EEXIST, "Storing", path);
  }
  const std::string directory = directoryOf(path);
  const std::string temporary = temporaryName(directory);
  TemporaryName name(temporary);
  std::shared_ptr<const File> stored = data.file();
  if (!canTakeOver(data, directory) || !giveName(*stored, temporary)) {
    const auto target = File::createNew(temporary);
    if (!target) return target.error();
    name.own();
    if (auto copied = copyInto(data, **target); !copied) return copied;
    stored = *target;
  }
  name.own();
  if (replaces && ::fchmod(stored->descriptor(), existing.st_mode & 07777U) != 0) {
    return Error::fromErrno(errno, "Storing", path);
  }
  return name.renameTo(path);
}

bool staysInDirectory(std::string_view name) {
  // A server that encodes its separators means the same file, so every level of encoding counts.
  std::string decoded(name);
  do {
    if (!isPlainRelativePath(decoded)) return false;
  } while (percentDecode(decoded));
  return true;
}

FileKind fileKindAt(const std::string& path) noexcept {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return FileKind::kNothing;
  if (S_ISREG(status.st_mode)) return FileKind::kRegular;
  return S_ISDIR(status.st_mode) ? FileKind::kDirectory : FileKind::kOther;
}

}  // namespace varo::platform
