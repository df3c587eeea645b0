#include "Binary/Binary/DownloadTask/FileClaim.h"

#include "Platform/Foundation/Runtime.h"

#include <array>
#include <cerrno>
#include <filesystem>
#include <map>
#include <span>
#include <unistd.h>
#include <utility>
#include <vector>

namespace varo::binary {

using platform::Error;
using platform::File;
using platform::Mutex;
using platform::MutexLock;
using platform::Result;

namespace {

/// Bytes. A validator is a line; what is longer was not written by us.
constexpr std::size_t kMaxValidator = 4096;
/// Ends the line: without it the writer died in the middle.
constexpr char kEndOfLine = '\n';

/// The paths that this process has claimed, each with those that wait for it. A lock of the system
/// tells nobody when it becomes free.
class Claims {
 public:
  static Claims& shared() {
    static auto& instance = *new Claims();  // claims are released until the very end
    return instance;
  }

  /// False where the path is claimed; `onFree` then waits.
  [[nodiscard]] bool enter(const std::string& path, std::function<void()> onFree) {
    const MutexLock lock(mutex_);
    const auto [claim, isNew] = waiting_.try_emplace(path);
    if (!isNew) claim->second.push_back(std::move(onFree));
    return isNew;
  }

  void leave(const std::string& path) {
    std::vector<std::function<void()>> told;
    {
      const MutexLock lock(mutex_);
      const auto claim = waiting_.find(path);
      told.swap(claim->second);
      waiting_.erase(claim);
    }
    for (auto& onFree : told) platform::Runtime::shared().pool().postOrRun(std::move(onFree));
  }

 private:
  Mutex mutex_;
  std::map<std::string, std::vector<std::function<void()>>> waiting_ VARO_GUARDED_BY(mutex_);
};

struct Hidden {
  std::shared_ptr<File> file;
  bool isNew = false;
};

Result<Hidden> openOrCreate(const std::string& path) {
  auto opened = File::openForWriting(path);
  if (opened) return Hidden{std::move(opened).value(), false};
  if (opened.error()->code() != ENOENT) return opened.error();
  auto created = File::createNew(path);
  if (!created) return created.error();
  return Hidden{std::move(created).value(), true};
}

Result<Hidden> lockHidden(const std::string& path, const std::string& hiddenPath) {
  while (true) {
    auto hidden = openOrCreate(hiddenPath);
    // Another process has made or removed it in between.
    if (!hidden && hidden.error()->code() == EEXIST) continue;
    if (!hidden) return hidden;
    if (!hidden->file->lock()) {
      return Error::fromErrno(EBUSY, "Another download is writing", path);
    }
    // Its former owner may have removed it before our lock.
    if (hidden->file->isAt(hiddenPath)) return hidden;
  }
}

}  // namespace

FileClaim::Attempt FileClaim::acquire(const std::string& path, std::function<void()> onFree) {
  if (!Claims::shared().enter(path, std::move(onFree))) return {};
  auto hidden = lockHidden(path, hiddenPath(path));
  if (hidden) {
    return {std::make_shared<FileClaim>(Badge{}, path, std::move(hidden->file), hidden->isNew),
            nullptr};
  }
  Claims::shared().leave(path);
  return {nullptr, hidden.error()};
}

FileClaim::FileClaim(Badge /*badge*/, std::string path, std::shared_ptr<File> file, bool isNew)
    : path_(std::move(path)), file_(std::move(file)) {
  readValidator(isNew);
}

FileClaim::~FileClaim() { release(); }

std::string FileClaim::hiddenPath(const std::string& path) {
  const std::filesystem::path file(path);
  return file.parent_path() / ("." + file.filename().string() + ".partial");
}

bool FileClaim::isBusy(const Error& error) noexcept { return error.code() == EBUSY; }

void FileClaim::readValidator(bool isNew) {
  const MutexLock lock(mutex_);
  std::array<char, kMaxValidator> buffer{};
  const auto size = file_->readAt(0, buffer);
  const std::string_view text(buffer.data(), size ? *size : 0);
  if (text.ends_with(kEndOfLine)) {
    validator_ = text.substr(0, text.size() - 1);
  } else {
    isBroken_ = !isNew;
  }
}

std::string FileClaim::validator() const {
  const MutexLock lock(mutex_);
  return validator_;
}

Result<void> FileClaim::setValidator(const std::string& text) {
  const MutexLock lock(mutex_);
  if (file_ == nullptr) return Error::fromErrno(EBADF, "Noting the object of", path_);
  // In this order: what is cut off in the middle has no end of line.
  if (const auto emptied = file_->setSize(0); !emptied) return emptied;
  if (const auto written = file_->writeAt(0, text + kEndOfLine); !written) return written;
  validator_ = text;
  return {};
}

void FileClaim::finish() {
  const MutexLock lock(mutex_);
  validator_.clear();
}

void FileClaim::release() {
  {
    const MutexLock lock(mutex_);
    if (file_ == nullptr) return;
    // Before the lock goes, so that nobody else's is removed. Where it fails the next claim reads
    // what is in it.
    if (validator_.empty()) (void)::unlink(hiddenPath(path_).c_str());
    file_.reset();
  }
  Claims::shared().leave(path_);
}

}  // namespace varo::binary
