#include "Binary/Binary/DownloadTask/DownloadFile.h"

#include "Binary/Binary/SourceNames.h"
#include "Platform/Network/NetworkTuning.h"

#include <cerrno>
#include <string_view>
#include <utility>

namespace varo::binary {

using platform::File;

namespace {

/// Bytes after which the system is asked to begin writing to the disk, so that `sync` at the end
/// does not wait for the whole file.
constexpr std::uint64_t kWritebackSize = std::uint64_t{8} * 1024 * 1024;

}  // namespace

Result<void> DownloadFile::create(const std::string& path) {
  close();
  auto created = File::createNew(path);
  if (!created) return created.error();
  _fileHandle = std::move(created).value();
  return lock(*_fileHandle);
}

Result<void> DownloadFile::lock(const File& file) const {
  return claim_ != nullptr ? Result<void>() : file.lock();
}

Result<void> DownloadFile::open(const std::string& path) {
  if (_fileHandle != nullptr && _fileHandle->path() == path) {
    if (_fileHandle->isAt(path)) return {};
    return Error::fromErrno(ESTALE, "Writing", path);
  }
  close();
  auto opened = File::openForWriting(path);
  if (!opened) return opened.error();
  if (const auto locked = lock(**opened); !locked) {
    return Error::fromErrno(EBUSY, "Another download is writing", path);
  }
  _fileHandle = std::move(opened).value();
  return {};
}

Result<std::uint64_t> DownloadFile::write(const std::string& path, std::uint64_t offset,
                                          const Data& bytes, Gaps gaps) {
  if (const auto opened = open(path); !opened) return opened.error();
  ++writes_;
  const auto size = _fileHandle->size();
  if (!size) return size.error();
  if (*size < offset && gaps == Gaps::kRefused) {
    return Error::fromErrno(ENODATA, "Going on with", path);
  }
  if (*size > offset) {
    if (const auto cut = _fileHandle->setSize(offset); !cut) return cut.error();
  }
  if (const auto appended = append(offset, bytes); !appended) {
    // Which of its bytes arrived is not known; a failure to cut them off changes nothing.
    (void)_fileHandle->setSize(offset);
    return appended.error();
  }
  return offset + bytes.size();
}

Result<void> DownloadFile::append(std::uint64_t offset, const Data& bytes) {
  if (offset < unsent_) unsent_ = offset;
  auto written = bytes.forEachPiece([this, &offset](std::string_view piece) -> Result<void> {
    while (!piece.empty()) {
      const std::string_view part = piece.substr(0, platform::tuning::kWriteSize);
      if (auto done = _fileHandle->writeAt(offset, part); !done) return done;
      offset += part.size();
      piece.remove_prefix(part.size());
    }
    return {};
  });
  if (written && offset - unsent_ >= kWritebackSize) {
    _fileHandle->startWriteback(unsent_, offset - unsent_);
    unsent_ = offset;
  }
  return written;
}

Result<DownloadFile::Unsynced> DownloadFile::unsynced(const std::string& path) {
  if (auto opened = open(isOpen() ? _fileHandle->path() : path); !opened) return opened.error();
  if (syncedWrites_ == writes_) return Unsynced();
  return Unsynced{_fileHandle, writes_};
}

void DownloadFile::noteSynced(const Unsynced& synced) noexcept { syncedWrites_ = synced.writes; }

Result<void> DownloadFile::empty(const std::string& path) {
  if (auto opened = open(path); !opened) return opened;
  return _fileHandle->setSize(0);
}

std::uint64_t DownloadFile::sizeAt(const std::string& path) {
  const auto file = File::openForReading(path);
  const auto size = file ? (*file)->size() : Result<std::uint64_t>(file.error());
  return size ? *size : 0;
}

void DownloadFile::release() {
  close();
  claim_.reset();
}

void DownloadFile::close() {
  // Whoever still synchronises it keeps it open, and needs no lock.
  if (_fileHandle != nullptr) _fileHandle->unlock();
  _fileHandle.reset();
  syncedWrites_.reset();
  unsent_ = 0;
}

}  // namespace varo::binary
