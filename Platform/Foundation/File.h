#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Result.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace varo::platform {

/// An open file, closed with the last owner. Positioned reads and writes only, so that one instance
/// may be used by any number of threads at once.
class File {
 public:
  /// Opens the regular file at `path` for reading. Errors: domain "POSIX"; a directory is EISDIR,
  /// another special file EINVAL (opening it never blocks).
  [[nodiscard]] static Result<std::shared_ptr<const File>> openForReading(const std::string& path);

  /// The same for what has to stay as it is while it is read: once the file's size or time of
  /// modification is another than now, `readAt` fails with ESTALE.
  [[nodiscard]] static Result<std::shared_ptr<const File>> openUnchanging(const std::string& path);

  /// A new file in `directory` that has no name: it is gone with its last owner unless `storeFile`
  /// gives it one. Mode 0600 less the process's umask.
  [[nodiscard]] static Result<std::shared_ptr<File>> createUnnamed(const std::string& directory);

  /// A new, empty file at `path`, for reading and writing. Errors: EEXIST where something is there
  /// already. Mode 0600 less the umask.
  [[nodiscard]] static Result<std::shared_ptr<File>> createNew(const std::string& path);

  /// Opens the regular file at `path` for reading and writing. Errors: a symbolic link is ELOOP, a
  /// directory EISDIR, another special file EINVAL (opening it never blocks).
  [[nodiscard]] static Result<std::shared_ptr<File>> openForWriting(const std::string& path);

  ~File();
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  [[nodiscard]] Result<std::uint64_t> size() const;
  /// Reads until `buffer` is full or the file ends; returns the number of bytes. Errors: ESTALE,
  /// see `openUnchanging`.
  [[nodiscard]] Result<std::size_t> readAt(std::uint64_t offset, std::span<char> buffer) const;
  /// Writes all of `bytes`.
  [[nodiscard]] Result<void> writeAt(std::uint64_t offset, std::string_view bytes);
  /// Cuts the file to `size` bytes, or lengthens it with zeros.
  [[nodiscard]] Result<void> setSize(std::uint64_t size);
  /// Waits until what was written, and the file's name in its directory, are on the disk. Tells of
  /// write errors that no call before could know of.
  [[nodiscard]] Result<void> sync() const;
  /// Has the system begin to bring a region to the disk, so that `sync` has less to wait for.
  void startWriteback(std::uint64_t offset, std::uint64_t length) const noexcept;

  /// Locks the file for this object, against every other one and other processes (advisory: only
  /// those that ask are kept out); unlocked with `unlock` or the last owner. Errors: EWOULDBLOCK
  /// where it is locked already. Succeeds on a file system that has no locks. Precondition: it is
  /// open for writing.
  [[nodiscard]] Result<void> lock() const;
  /// Gives that lock up, if this object has it.
  void unlock() const noexcept;
  /// Whether `path` names this file still, not another one or none.
  [[nodiscard]] bool isAt(const std::string& path) const noexcept;

  /// The descriptor, owned by this object.
  [[nodiscard]] int descriptor() const noexcept { return descriptor_; }
  /// What it was opened as, for error texts.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// Whether this is a nameless file that can still be given a name.
  [[nodiscard]] bool canBeNamed() const noexcept { return canBeNamed_; }

 private:
  struct Badge {};
  /// What shows that a file was changed.
  struct Stamp {
    std::int64_t size, seconds, nanoseconds;
    bool operator==(const Stamp&) const = default;
  };

 public:
  File(Badge, int descriptor, std::string path, bool canBeNamed);

 private:
  /// The descriptor is closed, too, where there is no memory for its owner.
  [[nodiscard]] static std::shared_ptr<File> adopt(int descriptor, const std::string& path,
                                                   bool canBeNamed);
  [[nodiscard]] static Result<std::shared_ptr<File>> openRegular(const std::string& path,
                                                                 int flags);

  /// Of now; none where it cannot be told.
  [[nodiscard]] std::optional<Stamp> stamp() const noexcept;

  const int descriptor_;
  const std::string path_;
  const bool canBeNamed_;
  /// That it has to keep; none: any. Set before the file is shared.
  std::optional<Stamp> expected_;
};

/// Whether storing waits for the disk.
enum class Durability {
  kNone,    // a power failure may undo or, on some file systems, empty what was stored just before
  kSynced,  // the content is on the disk before its name appears, and the name before the return
};

/// Stores `data` under `path` so that the name shows the old content or the whole new one, never a
/// part, whatever fails. Replaces a regular file (keeping its permissions); a new file has the mode
/// that the directory and the umask give by default, its temporary form 0600. A symbolic link,
/// directory or special file at `path` is left alone and an error.
///
/// Where the system can, it moves the bytes of a file-backed `Data` itself: an unnamed file in the
/// same directory is just given the name, others are copied without passing through this process.
/// Errors: domain "POSIX" with `errno`, the path concerned in the user information. Thread-safe.
[[nodiscard]] Result<void> storeFile(const std::string& path, const Data& data,
                                     Durability durability = Durability::kNone);
/// The same where nothing is there; what is there is left alone, and the error is EEXIST.
[[nodiscard]] Result<void> storeNewFile(const std::string& path, const Data& data,
                                        Durability durability = Durability::kNone);

/// The same with a file of the caller's own, which stands at `file.path()`, in the same file
/// system: it gets the name `path` and loses its own. Nothing is copied. Where it fails, the file
/// keeps its name; of the two it may have both, where the process dies in between.
[[nodiscard]] Result<void> moveFile(const File& file, const std::string& path,
                                    Durability durability = Durability::kNone);
[[nodiscard]] Result<void> moveNewFile(const File& file, const std::string& path,
                                       Durability durability = Durability::kNone);

/// What stands under a path, without following a symbolic link there.
enum class FileKind { kNothing, kRegular, kDirectory, kOther };
[[nodiscard]] FileKind fileKindAt(const std::string& path) noexcept;

/// Whether `name`, chosen by a peer, stays below `directory` when it is appended to it: not empty,
/// not absolute, no empty, "." or ".." component, no NUL or backslash, also after percent-decoding
/// (a percent sign that encodes nothing is a character like others). And no folder that it passes
/// through on the disk is a symbolic link, which would lead elsewhere; what stands under the last
/// component is `storeFile`'s to judge.
[[nodiscard]] bool staysInDirectory(const std::string& directory, std::string_view name);

}  // namespace varo::platform
