#pragma once

#include "Platform/Foundation/Result.h"

#include <string>

namespace varo::cli {

/// A new directory below the one for temporary files, that only this user can enter. It is removed
/// with everything in it when this object goes.
class TemporaryDirectory {
 public:
  /// Errors: domain "POSIX".
  [[nodiscard]] static platform::Result<TemporaryDirectory> make();
  ~TemporaryDirectory();
  TemporaryDirectory(TemporaryDirectory&& other) noexcept;
  TemporaryDirectory& operator=(TemporaryDirectory&& other) noexcept;

  [[nodiscard]] const std::string& path() const noexcept { return path_; }

 private:
  explicit TemporaryDirectory(std::string path);

  std::string path_;  // empty after a move
};

}  // namespace varo::cli
