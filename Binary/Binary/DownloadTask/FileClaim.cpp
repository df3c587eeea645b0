#include "Binary/Binary/DownloadTask/FileClaim.h"

#include "Binary/Binary/DownloadTask/ObjectValidator.h"
#include "Binary/Binary/SourceNames.h"
#include "Platform/Foundation/JobContext.h"
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

using platform::File;
using platform::Mutex;

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
    // Whoever leaves may belong to another operation.
    if (!isNew) claim->second.push_back(platform::JobContext::keeping(std::move(onFree)));
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

/// Leaves a path that was entered, unless somebody answers for it.
class Entered {
 public:
  explicit Entered(const std::string& path) : path_(path) {}
  ~Entered() {
    if (!isKept_) Claims::shared().leave(path_);
  }
  Entered(const Entered&) = delete;
  Entered& operator=(const Entered&) = delete;
  void keep() noexcept { isKept_ = true; }

 private:
  const std::string& path_;
  bool isKept_ = false;
};

Result<std::shared_ptr<File>> openOrCreate(const std::string& path) {
  auto opened = File::openForWriting(path);
  return opened || opened.error()->code() != ENOENT ? opened : File::createNew(path);
}

Result<std::shared_ptr<File>> lockHidden(const std::string& path, const std::string& hiddenPath) {
  while (true) {
    auto hidden = openOrCreate(hiddenPath);
    // Another process has made or removed it in between.
    if (!hidden && hidden.error()->code() == EEXIST) continue;
    if (!hidden) return hidden;
    if (!(*hidden)->lock()) {
      return Error::fromErrno(EBUSY, "Another download is writing", path);
    }
    // Its former owner may have removed it before our lock.
    if ((*hidden)->isAt(hiddenPath)) return hidden;
  }
}

}  // namespace

FileClaim::Attempt FileClaim::acquire(const std::string& path, std::function<void()> onFree) {
  if (!Claims::shared().enter(path, std::move(onFree))) return {};
  Entered entered(path);
  auto hidden = lockHidden(path, hiddenPath(path));
  if (!hidden) return {nullptr, hidden.error()};
  auto object = std::make_shared<FileClaim>(Badge{}, path, std::move(hidden).value());
  entered.keep();
  return {Lease(object.get(), [object](FileClaim* claim) { claim->release(); }), nullptr};
}

FileClaim::FileClaim(Badge /*badge*/, std::string path, std::shared_ptr<File> file)
    : path_(std::move(path)), hiddenPath_(hiddenPath(path_)), file_(std::move(file)) {
  readValidator();
}

FileClaim::~FileClaim() { release(); }

std::string FileClaim::hiddenPath(const std::string& path) {
  const std::filesystem::path file(path);
  return file.parent_path() / ("." + file.filename().string() + ".partial");
}

bool FileClaim::isBusy(const Error& error) noexcept { return error.code() == EBUSY; }

void FileClaim::readValidator() {
  const MutexLock lock(mutex_);
  std::array<char, kMaxValidator> buffer{};
  const auto size = file_->readAt(0, buffer);
  const std::string_view text(buffer.data(), size ? *size : 0);
  const std::size_t end = text.find(kEndOfLine);
  // Nothing was noted yet in an empty one; what the row says of the file holds.
  isBroken_ = !size || (end == std::string_view::npos && !text.empty());
  if (end != std::string_view::npos) validator_ = text.substr(0, end);
}

std::string FileClaim::validator() const {
  const MutexLock lock(mutex_);
  return validator_;
}

Result<void> FileClaim::setValidator(const std::string& text) {
  const MutexLock lock(mutex_);
  if (file_ == nullptr) return Error::fromErrno(EBADF, "Noting the object of", path_);
  // One write, over what was there: a process that dies leaves the one line or the other. What
  // stands behind the first line counts for nothing.
  const std::string line = text + kEndOfLine;
  std::string noted = text;
  auto written = file_->writeAt(0, line);
  if (written) written = file_->setSize(line.size());
  if (written) validator_.swap(noted);
  return written;
}

void FileClaim::noteWhole(std::int64_t size) {
  ObjectValidator object = ObjectValidator::parse(validator()).value_or(ObjectValidator());
  if (object.total == size) return;
  object.total = size;
  (void)setValidator(object.text());
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
    if (validator_.empty()) (void)::unlink(hiddenPath_.c_str());
    file_.reset();
  }
  Claims::shared().leave(path_);
}

}  // namespace varo::binary
