#pragma once

#include "Client/PartsRecord.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"
#include "varo/outcome.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

namespace varo::detail {

/// The file that the parts of one object are collected in, each at its place.
///
/// It has no name, and is gone with its owner. Or it stands beside the file NAME that it will
/// become, so that a later get goes on with it, also where this process was killed:
/// - ".NAME.varo-part" has the bytes. Whoever fills it has it locked, as `File::lock` says.
/// - ".NAME.varo-record" says which parts are there, and of which version of the object. It is
///   replaced in one step, when the bytes that it counts are on the disk.
///
/// Thread-safe, but for `found` and what changes that, which come before any part.
class PartsFile {
 public:
  [[nodiscard]] static platform::Result<std::shared_ptr<PartsFile>> nameless(
      const std::string& directory);
  /// Beside `destination`. `object` is the digest of the object's address. `Kind::kConflict` while
  /// another get, of any process, fills the file.
  [[nodiscard]] static Outcome<std::shared_ptr<PartsFile>> beside(
      const std::filesystem::path& destination, const std::string& object,
      const std::string& about);
  /// A file that nothing was recorded of goes. Unlocks it, whoever still has it open.
  ~PartsFile();
  PartsFile(const PartsFile&) = delete;
  PartsFile& operator=(const PartsFile&) = delete;

  /// What an earlier get of the same object has left; none where that is of no use.
  [[nodiscard]] const std::optional<PartsRecord>& found() const noexcept { return found_; }
  /// It is of another version than the object has now.
  void forgetFound() noexcept { found_.reset(); }
  /// Goes on with what was found.
  void goOn();
  /// Begins anew, without a part.
  [[nodiscard]] platform::Result<void> begin(PartsRecord of);

  /// Stores a part.
  [[nodiscard]] platform::Result<void> write(std::size_t index, const platform::Data& bytes);
  /// The bytes of a part are at their place in `file`: records that where it is time for it.
  [[nodiscard]] platform::Result<void> written(std::size_t index);
  /// Records all parts that are there.
  [[nodiscard]] platform::Result<void> record();

  [[nodiscard]] const std::shared_ptr<platform::File>& file() const noexcept { return file_; }
  /// Nobody needs the parts any more: removes what has their names.
  void remove();

 private:
  struct Badge {};

 public:
  PartsFile(Badge badge, std::shared_ptr<platform::File> file, std::string path,
            std::string recordPath);

 private:
  [[nodiscard]] std::optional<PartsRecord> readRecord(const std::string& object) const;
  [[nodiscard]] bool isTime() const VARO_REQUIRES(mutex_);

  const std::shared_ptr<platform::File> file_;
  /// Both are empty for a nameless file.
  const std::string path_;
  const std::string recordPath_;
  std::optional<PartsRecord> found_;  // changed before any part comes

  platform::Mutex mutex_;
  PartsRecord record_ VARO_GUARDED_BY(mutex_);
  bool isBegun_ VARO_GUARDED_BY(mutex_) = false;
  bool isRecorded_ VARO_GUARDED_BY(mutex_) = false;
  /// Somebody brings the bytes to the disk, or could not; others leave it at that.
  bool isRecording_ VARO_GUARDED_BY(mutex_) = false;
  std::uint64_t unrecorded_ VARO_GUARDED_BY(mutex_) = 0;  // bytes
  std::chrono::steady_clock::time_point recordedAt_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
