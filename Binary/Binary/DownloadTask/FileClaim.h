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

/// The right of one download to fill the file at a path, against every other download in this
/// process and in others; and which object the bytes in the file are of, so that whoever goes on
/// with a partial file, also after a crash, does not mix two objects.
///
/// It stands on a hidden file beside the file, ".NAME.partial", which is locked while the right is
/// claimed (advisory, as `File::lock`) and holds the object's validator. The hidden file is gone
/// when the download is complete, and stays with a partial file. A process that dies gives its
/// claims up. Thread-safe.
class FileClaim final : public platform::Object, public std::enable_shared_from_this<FileClaim> {
 public:
  /// Keeps the path claimed: who writes the file, or notes elsewhere what is in it, has one. The
  /// claim is released when the last of its leases goes, if not before.
  using Lease = std::shared_ptr<FileClaim>;
  /// What came of `acquire`: a claim; or an error; or neither, and the caller is told when another
  /// download of this process has given the path up.
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
  /// For whoever uses the claim as long as others hold leases; no lease itself.
  [[nodiscard]] std::shared_ptr<FileClaim> withoutLease() { return shared_from_this(); }
  /// Whether what is noted cannot be read: the file's bytes are not to be used.
  [[nodiscard]] bool isBroken() const noexcept { return isBroken_; }
  /// Notes of which object the bytes are that follow. To be called before they are written, and
  /// after the bytes of any other object are gone from the file. Errors: domain "POSIX".
  [[nodiscard]] platform::Result<void> setValidator(const std::string& text);

  /// Notes that the file has all bytes of the object, `size`, for whoever finds that nothing else
  /// says so. Without the note the next download starts over.
  void noteWhole(std::int64_t size);
  /// The file is complete and its owner knows: the hidden file goes.
  void finish();
  /// Lets others claim the path, whoever has leases. Nobody must write the file any more.
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
