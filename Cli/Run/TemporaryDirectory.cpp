#include "Cli/Run/TemporaryDirectory.h"

#include "Platform/Foundation/Error.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

namespace varo::cli {

using platform::Error;
using platform::Result;

TemporaryDirectory::TemporaryDirectory(std::string path) : path_(std::move(path)) {}

TemporaryDirectory::~TemporaryDirectory() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

TemporaryDirectory::TemporaryDirectory(TemporaryDirectory&& other) noexcept
    : path_(std::exchange(other.path_, {})) {}

TemporaryDirectory& TemporaryDirectory::operator=(TemporaryDirectory&& other) noexcept {
  // The other one removes what was here when it ends.
  std::swap(path_, other.path_);
  return *this;
}

namespace {

constexpr std::string_view kWhat = "cannot make a temporary directory";

}  // namespace

Result<TemporaryDirectory> TemporaryDirectory::make() {
  std::error_code failed;
  const std::filesystem::path parent = std::filesystem::temp_directory_path(failed);
  if (failed) return Error::fromErrno(failed.value(), kWhat, "");
  return fromPattern(parent / "varobinary-XXXXXX");
}

Result<TemporaryDirectory> TemporaryDirectory::makeIn(const std::string& parent) {
  return fromPattern(parent + "/.varobinary-XXXXXX");
}

Result<TemporaryDirectory> TemporaryDirectory::fromPattern(std::string path) {
  if (::mkdtemp(path.data()) == nullptr) return Error::fromErrno(errno, kWhat, path);
  return TemporaryDirectory(std::move(path));
}

}  // namespace varo::cli
