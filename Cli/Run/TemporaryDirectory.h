#pragma once

#include "Platform/Foundation/Result.h"

#include <string>

namespace varo::cli {

/// A new directory that only this user can enter. It is removed with everything in it when this
/// object goes.
class TemporaryDirectory {
 public:
  /// Below the directory for temporary files. Errors: domain "POSIX"; so of the next one.
  [[nodiscard]] static platform::Result<TemporaryDirectory> make();
  /// A hidden one in `parent`, for files that belong on its file system.
  [[nodiscard]] static platform::Result<TemporaryDirectory> makeIn(const std::string& parent);
  ~TemporaryDirectory();
  TemporaryDirectory(TemporaryDirectory&& other) noexcept;
  TemporaryDirectory& operator=(TemporaryDirectory&& other) noexcept;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  explicit TemporaryDirectory(std::string path);
  /// `path` ends in six "X", which become a name that is free.
  [[nodiscard]] static platform::Result<TemporaryDirectory> fromPattern(std::string path);

  std::string path_;  // empty after a move
};

}  // namespace varo::cli
