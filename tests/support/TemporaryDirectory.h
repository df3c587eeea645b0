#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace varo::test {

/// An empty directory that goes, with all that is in it, at the end of a test.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(testing::TempDir() + "varo-test-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) ADD_FAILURE() << "no directory " << path_;
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::string& path() const noexcept { return path_; }
  /// The path of something in the directory.
  [[nodiscard]] std::string operator/(std::string_view name) const {
    return path_ + '/' + std::string(name);
  }
  /// The names of all that is in the directory, hidden files too, sorted.
  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> result;
    for (const auto& entry : std::filesystem::directory_iterator(path_)) {
      result.push_back(entry.path().filename().string());
    }
    std::sort(result.begin(), result.end());
    return result;
  }

 private:
  std::string path_;
};

}  // namespace varo::test
