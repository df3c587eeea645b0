#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Foundation/Result.h"

#include <functional>
#include <memory>
#include <string>

namespace varo::binary {

/// The exclusive right of one download, among those of all processes, to fill the file at a path.
/// It also remembers which object the bytes in the file belong to, so that a download that resumes
/// a partial file, even after a crash, does not mix two objects.
///
/// Both are kept in a hidden file beside the file, ".NAME.partial":
/// - It is locked while the path is claimed (advisory, as `File::lock`). A process that dies gives
///   up its claims.
/// - It holds the object's validator.
/// - It stays with a partial file and is removed when the download is complete.
///
/// Thread-safe.
class FileClaim final : public platform::Object, public std::enable_shared_from_this<FileClaim> {
 public:
  /// Keeps the path claimed. Whoever writes the file, or records elsewhere what is in it, holds
  /// one. The claim is released with its last lease, or earlier by `release`.
  using Lease = std::shared_ptr<FileClaim>;
  /// The outcome of `acquire`: a claim, or an error, or neither. Neither means that another
  /// download of this process has the path; the caller is told when it becomes free.
  struct Attempt {
    Lease claim;
    /// Domain "POSIX": EBUSY where another process has the path, else why the hidden file cannot be
    /// made or read.
    platform::ErrorPtr error;
  };
  /// Claims `path`, an absolute path in a folder that exists. `onFree` is called at most once, on a
  /// thread of the runtime's pool, and only where the attempt is neither a claim nor an error.
  /// Throws `std::bad_alloc`, with nothing claimed.
  [[nodiscard]] static Attempt acquire(const std::string& path, std::function<void()> onFree);
  /// As `release`.
  ~FileClaim() override;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// Whether this is the error of a path that another process has.
  [[nodiscard]] static bool isBusy(const platform::Error& error) noexcept;

  /// What `setValidator` stored last, in any process. Empty where nothing is known of the file's
  /// bytes.
  [[nodiscard]] std::string validator() const;
  /// The claim without a lease, for whoever uses it only as long as others hold leases.
  [[nodiscard]] std::shared_ptr<FileClaim> withoutLease() { return shared_from_this(); }
  /// Whether the hidden file cannot be read; then the file's bytes must not be used.
  [[nodiscard]] bool isBroken() const noexcept { return isBroken_; }
  /// Records which object the bytes belong to that are written next. Call it before they are
  /// written, and after the bytes of any other object are gone from the file. Errors: domain
  /// "POSIX".
  [[nodiscard]] platform::Result<void> setValidator(const std::string& text);

  /// Records that the file has all `size` bytes of the object, in case nothing else records it.
  /// Without this a later download would start over.
  void noteWhole(std::int64_t size);
  /// The file is complete and its owner has recorded that: removes the hidden file.
  void finish();
  /// Lets others claim the path, even while there are leases. Nobody may write the file any more.
  void release();

  [[nodiscard]] std::string description() const override { return "FileClaim of " + path_; }

 private:
  struct Badge {};

 public:
  FileClaim(Badge badge, std::string path, std::shared_ptr<platform::File> file);

 private:
  [[nodiscard]] static std::string hiddenPath(const std::string& path);
  void readValidator();

  const std::string path_;
  const std::string hiddenPath_;  // made here, since a release must not fail for memory
  bool isBroken_ = false;         // constant after construction

  mutable platform::Mutex mutex_;
  /// The locked hidden file; null once released.
  std::shared_ptr<platform::File> file_ VARO_GUARDED_BY(mutex_);
  std::string validator_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
