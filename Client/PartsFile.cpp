#include "Client/PartsFile.h"

#include "Client/Failures.h"
#include "Platform/Foundation/Clock.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <cerrno>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace varo::detail {

using platform::Data;
using platform::File;
using platform::MutexLock;
using platform::Result;
namespace fs = std::filesystem;

namespace {

// What has to come again after the process was killed, against waiting for the disk: whichever is
// reached first.
constexpr std::uint64_t kRecordEvery = std::uint64_t{8} << 20U;
constexpr std::chrono::seconds kRecordAfter{1};

std::string besideOf(const fs::path& destination, const char* ending) {
  return (destination.parent_path() / ("." + destination.filename().string() + ending)).string();
}

/// Whether there was something.
Result<bool> removeFile(const std::string& path) {
  std::error_code error;
  const bool wasThere = fs::remove(path, error);
  if (error) return platform::Error::fromErrno(error.value(), "Removing", path);
  return wasThere;
}

/// Not a finished file, too, whose get died before it took its first name away; and not one that
/// somebody else has put there, who could change it at any time.
bool isOursAlone(const File& file) {
  struct stat status {};
  return ::fstat(file.descriptor(), &status) == 0 && status.st_nlink == 1 &&
         status.st_uid == ::geteuid();
}

/// The file at `path`, locked, made where it is not there.
Result<std::shared_ptr<File>> openLocked(const std::string& path) {
  for (;;) {
    auto opened = File::openForWriting(path);
    if (!opened && opened.error()->code() == ENOENT) opened = File::createNew(path);
    // Somebody has made or removed it in between.
    if (!opened && opened.error()->code() == EEXIST) continue;
    if (!opened) return opened;
    if (auto locked = (*opened)->lock(); !locked) return locked.error();
    // Its former owner may have renamed it before our lock.
    if (!(*opened)->isAt(path)) continue;
    if (isOursAlone(**opened)) return opened;
    if (auto removed = removeFile(path); !removed) return removed.error();
  }
}

}  // namespace

Result<std::shared_ptr<PartsFile>> PartsFile::nameless(const std::string& directory) {
  auto made = File::createUnnamed(directory);
  if (!made) return made.error();
  return std::make_shared<PartsFile>(Badge{}, std::move(made).value(), "", "");
}

Outcome<std::shared_ptr<PartsFile>> PartsFile::beside(const fs::path& destination,
                                                      const std::string& object,
                                                      const std::string& about) {
  std::string path = besideOf(destination, ".varo-part");
  auto opened = openLocked(path);
  if (!opened && opened.error()->code() == EWOULDBLOCK) {
    return failureOf(Kind::kConflict, fmt::format("{}: another get into \"{}\" is under way", about,
                                                  destination.string()));
  }
  if (!opened) return failureFrom(opened.error(), about);
  auto parts = std::make_shared<PartsFile>(Badge{}, std::move(opened).value(), std::move(path),
                                           besideOf(destination, ".varo-record"));
  parts->found_ = parts->readRecord(object);
  return parts;
}

PartsFile::PartsFile(Badge /*badge*/, std::shared_ptr<File> file, std::string path,
                     std::string recordPath)
    : file_(std::move(file)),
      path_(std::move(path)),
      recordPath_(std::move(recordPath)),
      recordedAt_(platform::Clock::system().steadyNow()) {}

PartsFile::~PartsFile() {
  bool isOfNoUse = false;
  {
    const MutexLock lock(mutex_);
    isOfNoUse = isBegun_ && !isRecorded_;
    // Parts of another object are not ours to remove before this one is known to be there.
    if (!isBegun_) isOfNoUse = file_->size() && *file_->size() == 0;
  }
  if (isOfNoUse) remove();
  if (!path_.empty()) file_->unlock();
}

std::optional<PartsRecord> PartsFile::readRecord(const std::string& object) const {
  if (platform::fileKindAt(recordPath_) != platform::FileKind::kRegular) return std::nullopt;
  const auto opened = Data::fromFile(recordPath_);
  if (!opened) return std::nullopt;
  const auto text = opened->readAll(PartsRecord::kMaxText);
  auto record = text ? PartsRecord::parse(*text) : std::nullopt;
  const auto size = file_->size();
  // Whoever has cut the file has taken parts away that the record counts.
  if (!record || record->object != object || !size || *size < record->end()) return std::nullopt;
  return record;
}

void PartsFile::goOn() {
  const MutexLock lock(mutex_);
  record_ = *std::exchange(found_, std::nullopt);
  isBegun_ = true;
  isRecorded_ = true;
}

Result<void> PartsFile::begin(PartsRecord of) {
  if (!path_.empty()) {
    // Before its bytes go, on the disk too: it must never count what is not there.
    const auto removed = removeFile(recordPath_);
    if (!removed) return removed.error();
    if (*removed) {
      if (auto synced = file_->sync(); !synced) return synced;
    }
    if (auto emptied = file_->setSize(0); !emptied) return emptied;
  }
  found_.reset();
  const MutexLock lock(mutex_);
  record_ = std::move(of);
  isBegun_ = true;
  isRecorded_ = false;
  unrecorded_ = 0;
  return {};
}

Result<void> PartsFile::write(std::size_t index, const Data& bytes) {
  std::uint64_t at = 0;
  {
    const MutexLock lock(mutex_);
    at = record_.plan.first(index);
  }
  auto done = bytes.forEachPiece([&](std::string_view piece) {
    auto one = file_->writeAt(at, piece);
    at += piece.size();
    return one;
  });
  return done ? written(index) : done;
}

Result<void> PartsFile::written(std::size_t index) {
  PartPlan plan;
  bool isDue = false;
  {
    const MutexLock lock(mutex_);
    plan = record_.plan;
    record_.isThere[index] = true;
    unrecorded_ += plan.length(index);
    isDue = !path_.empty() && isTime();
  }
  if (isDue) return record();
  // So that nobody waits for all of it at the end.
  file_->startWriteback(plan.first(index), plan.length(index));
  return {};
}

bool PartsFile::isTime() const {
  return unrecorded_ >= kRecordEvery ||
         platform::Clock::system().steadyNow() - recordedAt_ >= kRecordAfter;
}

Result<void> PartsFile::record() {
  if (path_.empty()) return {};
  for (bool isDue = true; isDue;) {
    std::string text;
    {
      const MutexLock lock(mutex_);
      if (isRecording_ || unrecorded_ == 0) return {};
      text = record_.text();
      unrecorded_ = 0;
      if (text.empty()) return {};
      isRecording_ = true;
    }
    // What comes from now on is not in the text, whether it is on the disk or not.
    auto stored = file_->sync();
    if (stored) stored = platform::storeFile(recordPath_, Data::fromBytes(std::move(text)));
    // It stays at "recording": of bytes that could not be brought to the disk the system tells
    // once, and the next attempt would take them for safe.
    if (!stored) return stored;
    const MutexLock lock(mutex_);
    isRecording_ = false;
    isRecorded_ = true;
    recordedAt_ = platform::Clock::system().steadyNow();
    isDue = isTime();
  }
  return {};
}

void PartsFile::remove() {
  if (path_.empty()) return;
  static_cast<void>(removeFile(recordPath_));
  if (file_->isAt(path_)) static_cast<void>(removeFile(path_));
}

}  // namespace varo::detail
