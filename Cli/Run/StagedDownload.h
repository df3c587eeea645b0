#pragma once

#include "Cli/Run/TemporaryDirectory.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Result.h"

#include <memory>
#include <string>

namespace varo::platform {
class UserDirectories;
}

namespace varo::cli {

/// Has the library store its downloads in a hidden directory next to where they belong, so that a
/// file appears in its place when it is complete, and not at all if it never is.
/// - While this object lives, other user directories are in force.
/// - Its end removes the hidden directory and what is left in it, so downloads must have ended.
/// - One at a time, on the main thread.
class StagedDownload {
 public:
  /// In the documents directory, which is made where it is missing. Errors: domain "POSIX"; so of
  /// the next one.
  [[nodiscard]] static platform::Result<std::unique_ptr<StagedDownload>> begin();
  /// In `parent`, to bring the file to a place beside it.
  [[nodiscard]] static platform::Result<std::unique_ptr<StagedDownload>> beginIn(
      const std::string& parent);
  ~StagedDownload();
  StagedDownload(const StagedDownload&) = delete;
  StagedDownload& operator=(const StagedDownload&) = delete;

  /// Moves the complete file at `path` to its place; returns where that is. Errors: domain "POSIX";
  /// domain "CommandLine" for one that the library has spread over several files, as it may with
  /// the compatible policy.
  [[nodiscard]] platform::Result<std::string> publish(const std::string& path) const;
  /// The bytes of the complete file at `path`, to be stored elsewhere while this object lives.
  /// Errors as above.
  [[nodiscard]] platform::Result<platform::Data> content(const std::string& path) const;

 private:
  StagedDownload(std::shared_ptr<const platform::UserDirectories> real,
                 TemporaryDirectory directory);

  const std::shared_ptr<const platform::UserDirectories> real_;
  const TemporaryDirectory directory_;
};

}  // namespace varo::cli
