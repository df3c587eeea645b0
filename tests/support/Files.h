#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/File.h"

#include <gmock/gmock.h>

#include <csignal>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/resource.h>

namespace varo::test {

/// Bytes that differ from place to place, so that a piece at a wrong one shows.
inline std::string sampleBytes(std::size_t size) {
  std::string bytes(size, '\0');
  std::uint32_t state = 1;
  for (char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24U);
  }
  return bytes;
}

/// Empty where there is no file.
inline std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

inline void writeFile(const std::string& path, std::string_view bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

/// The bytes in a file without a name.
inline platform::Data inFile(std::string_view bytes,
                             const std::string& directory = testing::TempDir()) {
  const auto file = platform::File::createUnnamed(directory).value();
  EXPECT_TRUE(file->writeAt(0, bytes).ok());
  return platform::Data::fromFileRegion(file, 0, bytes.size());
}

/// Lets files of this process grow to this size only, as a full disk would.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }

 private:
  rlimit before_{};
  void (*handler_)(int);
};

}  // namespace varo::test
