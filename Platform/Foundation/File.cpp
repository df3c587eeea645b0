#include "Platform/Foundation/File.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Random.h"
#include "Platform/System/FileCalls.h"
#include "Platform/System/FileLock.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <limits>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace varo::platform {
namespace {

/// Names the library's own temporary files carry; nothing else is ever removed.
constexpr std::string_view kTemporaryPrefix = ".varo-";
constexpr std::size_t kCopyBlock = std::size_t{512} * 1024;

constexpr int kCreateNew = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
constexpr mode_t kOwnOnly = S_IRUSR | S_IWUSR;

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// Whether the system would see all of `path`.
bool hasNul(std::string_view path) noexcept { return path.find('\0') != std::string_view::npos; }

/// A temporary name in a directory. What stands there once it was `own`ed goes with this object.
class TemporaryName {
 public:
  // Random, since a counter or process id could meet what a crashed process left behind.
  explicit TemporaryName(const std::string& directory)
      : path_(fmt::format("{}/{}{:016x}", directory, kTemporaryPrefix,
                          Random::system().integer(0, std::numeric_limits<std::int64_t>::max()))) {}
  TemporaryName(const TemporaryName&) = delete;
  TemporaryName& operator=(const TemporaryName&) = delete;
  // Also after a rename, which leaves both names where they are of the same file already.
  ~TemporaryName() {
    if (owned_) ::unlink(path_.c_str());
  }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// From here on there is a file of ours under the name.
  void own() noexcept { owned_ = true; }

  /// Gives the name to a nameless file. Fails where the system cannot do it.
  [[nodiscard]] bool giveTo(const File& file) {
    owned_ = system::giveName(file.descriptor(), path_);
    return owned_;
  }

 private:
  const std::string path_;
  bool owned_ = false;
};

Result<void> copyThroughMemory(const Data& data, std::uint64_t offset, File& target) {
  std::vector<char> block(std::min<std::uint64_t>(kCopyBlock, data.size() - offset));
  while (offset < data.size()) {
    const auto count = data.read(offset, block);
    if (!count) return count.error();
    auto written = target.writeAt(offset, std::string_view(block.data(), *count));
    if (!written) return written;
    offset += *count;
  }
  return {};
}

Result<void> copyInto(const Data& data, File& target) {
  if (const auto bytes = data.memory()) return target.writeAt(0, *bytes);
  std::uint64_t copied = 0;
  while (copied < data.size()) {
    const ssize_t count =
        system::copyRange(data.file()->descriptor(), static_cast<off_t>(data.fileOffset() + copied),
                          target.descriptor(), static_cast<off_t>(copied), data.size() - copied);
    // Across some file systems the kernel cannot copy; a short file shows up as 0 here.
    if (count <= 0) return copyThroughMemory(data, copied, target);
    copied += static_cast<std::uint64_t>(count);
  }
  return {};
}

/// Whether `data` is all of a nameless file on the file system of `directory`, so that the file
/// itself can become the stored one.
bool canTakeOver(const Data& data, const std::string& directory) {
  if (data.file() == nullptr || !data.file()->canBeNamed() || data.fileOffset() != 0) return false;
  struct stat source {};
  struct stat target {};
  if (::fstat(data.file()->descriptor(), &source) != 0) return false;
  if (::stat(directory.c_str(), &target) != 0) return false;
  return source.st_nlink == 0 && source.st_dev == target.st_dev &&
         static_cast<std::uint64_t>(source.st_size) == data.size();
}

/// Brings `data` under the temporary name; returns the file that is there then.
Result<std::shared_ptr<const File>> place(const Data& data, const std::string& directory,
                                          TemporaryName& name) {
  if (canTakeOver(data, directory) && name.giveTo(*data.file())) return data.file();
  // Filled before it has a name, so that a process that dies meanwhile leaves nothing behind.
  const auto nameless = File::createUnnamed(directory);
  if (!nameless) return nameless.error();
  if ((*nameless)->canBeNamed()) {
    if (const auto copied = copyInto(data, **nameless); !copied) return copied.error();
    if (name.giveTo(**nameless)) return std::shared_ptr<const File>(*nameless);
  }
  const auto named = File::createNew(name.path());
  if (!named) return named.error();
  name.own();
  if (const auto copied = copyInto(data, **named); !copied) return copied.error();
  return std::shared_ptr<const File>(*named);
}

/// The mode that a new file in `directory` gets from the umask or the directory itself. Found out
/// with a file, since the umask cannot be read without being changed for all threads.
mode_t defaultModeIn(const std::string& directory) {
  constexpr mode_t kAll = 0666;
  TemporaryName name(directory);
  const int descriptor = ::open(name.path().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kAll);
  if (descriptor < 0) return kOwnOnly;
  name.own();
  struct stat status {};
  const bool known = ::fstat(descriptor, &status) == 0;
  ::close(descriptor);
  return known ? status.st_mode & kAll : kOwnOnly;
}

Result<void> syncDirectory(const std::string& directory) {
  const int descriptor = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (descriptor < 0) return Error::fromErrno(errno, "Syncing", directory);
  // Some file systems cannot sync a directory, and keep names safe in their own way.
  const int failure = system::flush(descriptor) != 0 && errno != EINVAL ? errno : 0;
  ::close(descriptor);
  if (failure != 0) return Error::fromErrno(failure, "Syncing", directory);
  return {};
}

/// Network file systems report a full disk only when a descriptor is closed.
bool isAccepted(const File& file) noexcept {
  const int copy = ::fcntl(file.descriptor(), F_DUPFD_CLOEXEC, 0);
  return copy >= 0 && (::close(copy) == 0 || errno == EINTR);
}

enum class Naming { kReplaces, kIsNew };

/// The mode that `path` gives to what is stored there: that of the file that is replaced, or of a
/// new one. An error where something else than a file is there.
Result<mode_t> modeFor(const std::string& path, Naming naming) {
  const auto failure = [&path](int number) { return Error::fromErrno(number, "Storing", path); };
  if (hasNul(path)) return failure(EINVAL);
  if (naming == Naming::kIsNew) return defaultModeIn(directoryOf(path));
  struct stat existing {};
  if (::lstat(path.c_str(), &existing) != 0) {
    if (errno != ENOENT) return failure(errno);
    return defaultModeIn(directoryOf(path));
  }
  if (!S_ISREG(existing.st_mode)) return failure(S_ISDIR(existing.st_mode) ? EISDIR : EEXIST);
  // Without the bits that would run the new content as another user.
  return existing.st_mode & (S_IRWXU | S_IRWXG | S_IRWXO);
}

/// Gives `file`, which has the name `temporary` too, the name `path`.
Result<void> nameFile(const File& file, const std::string& temporary, const std::string& path,
                      Durability durability, mode_t mode, Naming naming) {
  const auto failure = [&path](int number) { return Error::fromErrno(number, "Storing", path); };
  if (::fchmod(file.descriptor(), mode) != 0) return failure(errno);
  if (!isAccepted(file)) return failure(errno);
  const bool isSynced = durability == Durability::kSynced;
  if (isSynced && system::flush(file.descriptor()) != 0) return failure(errno);
  // A link fails where the name is there, a rename replaces what it names.
  const int named = naming == Naming::kIsNew ? ::link(temporary.c_str(), path.c_str())
                                             : ::rename(temporary.c_str(), path.c_str());
  if (named != 0) return failure(errno);
  if (isSynced) return syncDirectory(directoryOf(path));
  return {};
}

/// Stores `data` under a temporary name, then under `path`.
Result<void> store(const std::string& path, const Data& data, Durability durability,
                   Naming naming) {
  const auto mode = modeFor(path, naming);
  if (!mode) return mode.error();
  const std::string directory = directoryOf(path);
  TemporaryName name(directory);
  const auto stored = place(data, directory, name);
  if (!stored) return stored.error();
  return nameFile(**stored, name.path(), path, durability, *mode, naming);
}

Result<void> moveTo(const File& file, const std::string& path, Durability durability,
                    Naming naming) {
  // Whatever else has its name by now is not ours to move.
  if (!file.isAt(file.path())) return Error::fromErrno(ENOENT, "Storing", file.path());
  const auto mode = modeFor(path, naming);
  if (!mode) return mode.error();
  auto moved = nameFile(file, file.path(), path, durability, *mode, naming);
  if (moved && naming == Naming::kIsNew) ::unlink(file.path().c_str());
  return moved;
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

/// Looks at the text alone.
bool isPlainAtEveryLevel(std::string_view name) {
  // What is longer has no file, and decoding it again and again would take for ever.
  if (name.size() > PATH_MAX) return false;
  // A server that encodes its separators means the same file, so every level of encoding counts.
  std::string encoded(name);
  for (;;) {
    if (!isPlainRelativePath(encoded)) return false;
    std::string decoded = percentDecode(encoded);
    if (decoded.size() == encoded.size()) return true;
    encoded = std::move(decoded);
  }
}

}  // namespace

File::File(Badge /*badge*/, int descriptor, std::string path, bool canBeNamed)
    : descriptor_(descriptor), path_(std::move(path)), canBeNamed_(canBeNamed) {}

File::~File() { system::closeFile(descriptor_); }

std::shared_ptr<File> File::adopt(int descriptor, const std::string& path, bool canBeNamed) {
  try {
    return std::make_shared<File>(Badge{}, descriptor, path, canBeNamed);
  } catch (const std::bad_alloc&) {
    system::closeFile(descriptor);
    throw;
  }
}

Result<std::shared_ptr<File>> File::openRegular(const std::string& path, int flags) {
  if (hasNul(path)) return Error::fromErrno(EINVAL, "Opening", path);
  // Without O_NONBLOCK, opening a FIFO would wait for its other end.
  const int descriptor = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
  if (descriptor < 0) return Error::fromErrno(errno, "Opening", path);
  auto file = adopt(descriptor, path, false);
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return Error::fromErrno(errno, "Opening", path);
  if (S_ISDIR(status.st_mode)) return Error::fromErrno(EISDIR, "Opening", path);
  if (!S_ISREG(status.st_mode)) return Error::fromErrno(EINVAL, "Opening", path);
  return file;
}

Result<std::shared_ptr<const File>> File::openForReading(const std::string& path) {
  auto file = openRegular(path, O_RDONLY);
  if (!file) return file.error();
  return std::shared_ptr<const File>(std::move(file).value());
}

Result<std::shared_ptr<const File>> File::openUnchanging(const std::string& path) {
  auto file = openRegular(path, O_RDONLY);
  if (!file) return file.error();
  (*file)->expected_ = (*file)->stamp();
  if (!(*file)->expected_) return Error::fromErrno(errno, "Opening", path);
  return std::shared_ptr<const File>(std::move(file).value());
}

std::optional<File::Stamp> File::stamp() const noexcept {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) return std::nullopt;
  return Stamp{status.st_size, status.st_mtim.tv_sec, status.st_mtim.tv_nsec};
}

Result<std::shared_ptr<File>> File::openForWriting(const std::string& path) {
  return openRegular(path, O_RDWR | O_NOFOLLOW);
}

Result<std::shared_ptr<File>> File::createUnnamed(const std::string& directory) {
  const auto failure = [&directory](int number) {
    return Error::fromErrno(number, "Creating a file in", directory);
  };
  if (hasNul(directory)) return failure(EINVAL);
  const int nameless = system::openNameless(directory);
  if (nameless >= 0) return adopt(nameless, directory, true);
  // Not every file system has nameless files; a named one whose name is gone at once does as well.
  TemporaryName name(directory);
  const int descriptor = ::open(name.path().c_str(), kCreateNew, kOwnOnly);
  if (descriptor < 0) return failure(errno);
  name.own();
  return adopt(descriptor, directory, false);
}

Result<std::shared_ptr<File>> File::createNew(const std::string& path) {
  if (hasNul(path)) return Error::fromErrno(EINVAL, "Creating", path);
  const int descriptor = ::open(path.c_str(), kCreateNew, kOwnOnly);
  if (descriptor < 0) return Error::fromErrno(errno, "Creating", path);
  return adopt(descriptor, path, false);
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
  // After the read: what changes later is not in these bytes.
  if (expected_ && stamp() != expected_) {
    return std::make_shared<const Error>(
        std::string(kPosixErrorDomain), ESTALE,
        Dictionary{{std::string(kLocalizedDescriptionKey),
                    fmt::format("The file {} has changed since it was opened", path_)},
                   {"path", path_}});
  }
  return done;
}

Result<void> File::writeAt(std::uint64_t offset, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count =
        ::pwrite(descriptor_, bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return Error::fromErrno(count < 0 ? errno : EIO, "Writing", path_);
    offset += static_cast<std::uint64_t>(count);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

Result<void> File::setSize(std::uint64_t size) {
  while (::ftruncate(descriptor_, static_cast<off_t>(size)) != 0) {
    if (errno != EINTR) return Error::fromErrno(errno, "Cutting", path_);
  }
  return {};
}

Result<void> File::sync() const {
  if (system::flushData(descriptor_) != 0) return Error::fromErrno(errno, "Syncing", path_);
  return syncDirectory(directoryOf(path_));
}

void File::startWriteback(std::uint64_t offset, std::uint64_t length) const noexcept {
  // Whether it works does not matter: `sync` waits for everything.
  system::startWriteback(descriptor_, static_cast<off_t>(offset), static_cast<off_t>(length));
}

void File::unlock() const noexcept { system::unlockFile(descriptor_); }

Result<void> File::lock() const {
  const int failure = system::lockFile(descriptor_);
  if (failure == EWOULDBLOCK) return Error::fromErrno(failure, "Locking", path_);
  return {};
}

bool File::isAt(const std::string& path) const noexcept {
  struct stat named {};
  struct stat opened {};
  return ::lstat(path.c_str(), &named) == 0 && ::fstat(descriptor_, &opened) == 0 &&
         named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

Result<void> storeFile(const std::string& path, const Data& data, Durability durability) {
  return store(path, data, durability, Naming::kReplaces);
}

Result<void> storeNewFile(const std::string& path, const Data& data, Durability durability) {
  return store(path, data, durability, Naming::kIsNew);
}

Result<void> moveFile(const File& file, const std::string& path, Durability durability) {
  return moveTo(file, path, durability, Naming::kReplaces);
}

Result<void> moveNewFile(const File& file, const std::string& path, Durability durability) {
  return moveTo(file, path, durability, Naming::kIsNew);
}

bool staysInDirectory(const std::string& directory, std::string_view name) {
  if (!isPlainAtEveryLevel(name)) return false;
  for (std::size_t slash = name.find('/'); slash != std::string_view::npos;
       slash = name.find('/', slash + 1)) {
    const std::string folder = fmt::format("{}/{}", directory, name.substr(0, slash));
    if (fileKindAt(folder) == FileKind::kOther) return false;
  }
  return true;
}

FileKind fileKindAt(const std::string& path) noexcept {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return FileKind::kNothing;
  if (S_ISREG(status.st_mode)) return FileKind::kRegular;
  return S_ISDIR(status.st_mode) ? FileKind::kDirectory : FileKind::kOther;
}

}  // namespace varo::platform
