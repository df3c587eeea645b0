#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/NeverDestroyed.h"
#include "Platform/System/FileLock.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <map>
#include <new>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace varo::platform::system {
namespace {

using FileId = std::pair<dev_t, ino_t>;

/// POSIX gives a lock to the whole process, and takes it away when the process closes any
/// descriptor of the file. So this keeps who in the process has the lock, and leaves other
/// descriptors of the same file open until the owner's is closed.
class Locks {
 public:
  int lock(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) return errno;
    const MutexLock guard(mutex_);
    const auto [entry, isNew] = locked_.try_emplace(FileId(status.st_dev, status.st_ino));
    if (!isNew) return entry->second.owner == descriptor ? 0 : EWOULDBLOCK;
    entry->second.owner = descriptor;
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    if (::fcntl(descriptor, F_SETLK, &whole) == 0) return 0;
    const int failure = errno;
    locked_.erase(entry);
    // Systems differ in how they say it.
    return failure == EACCES || failure == EAGAIN ? EWOULDBLOCK : failure;
  }

  void unlock(int descriptor) noexcept {
    const MutexLock guard(mutex_);
    const auto entry = std::find_if(locked_.begin(), locked_.end(), [&](const auto& each) {
      return each.second.owner == descriptor;
    });
    if (entry == locked_.end()) return;
    struct flock whole {};
    whole.l_type = F_UNLCK;
    whole.l_whence = SEEK_SET;
    (void)::fcntl(descriptor, F_SETLK, &whole);
    for (const int other : entry->second.others) ::close(other);
    locked_.erase(entry);
  }

  void close(int descriptor) noexcept {
    const MutexLock guard(mutex_);
    struct stat status {};
    const bool mayBeLocked = !locked_.empty() && ::fstat(descriptor, &status) == 0;
    const auto entry =
        mayBeLocked ? locked_.find(FileId(status.st_dev, status.st_ino)) : locked_.end();
    if (entry != locked_.end() && entry->second.owner != descriptor) {
      leaveOpen(descriptor, entry->second.others);
      return;
    }
    ::close(descriptor);
    if (entry == locked_.end()) return;
    for (const int other : entry->second.others) ::close(other);
    locked_.erase(entry);
  }

 private:
  struct Lock {
    int owner = -1;
    std::vector<int> others;  // no longer used, still open
  };

  static void leaveOpen(int descriptor, std::vector<int>& others) noexcept {
    try {
      others.push_back(descriptor);
    } catch (const std::bad_alloc&) {
      // It stays open for good, which is better than a lock that goes unseen.
    }
  }

  Mutex mutex_;
  std::map<FileId, Lock> locked_ VARO_GUARDED_BY(mutex_);
};

Locks& locks() noexcept {
  static NeverDestroyed<Locks> instance;  // files are closed until the very end
  return instance.get();
}

}  // namespace

int lockFile(int descriptor) noexcept {
  try {
    return locks().lock(descriptor);
  } catch (const std::bad_alloc&) {
    return ENOMEM;
  }
}

void unlockFile(int descriptor) noexcept { locks().unlock(descriptor); }

void closeFile(int descriptor) noexcept { locks().close(descriptor); }

}  // namespace varo::platform::system
