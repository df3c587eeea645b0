#pragma once

#include "Platform/Foundation/Result.h"

#include <cstdint>
#include <string>

namespace varo::cli {

/// A real file that the tour moves about.
struct DemoFile {
  std::string name;
  std::string path;
  std::uint64_t size = 0;
  /// SHA-256 of the content, in hexadecimal.
  std::string digest;
};

/// Makes a file of `size` random-looking bytes in `directory`; its name says the size. The content
/// depends on the name, so that no two files are mistaken for each other.
[[nodiscard]] platform::Result<DemoFile> makeDemoFile(const std::string& directory,
                                                      std::string name, std::uint64_t size);

/// SHA-256 of the file at `path`, in hexadecimal, read piece by piece.
[[nodiscard]] platform::Result<std::string> digestOfFile(const std::string& path);

/// Whether two files hold the same bytes, compared piece by piece. Files that cannot be read are
/// equal to nothing.
[[nodiscard]] bool sameBytes(const std::string& left, const std::string& right);

}  // namespace varo::cli
