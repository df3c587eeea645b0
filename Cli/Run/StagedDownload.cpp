#include "Cli/Run/StagedDownload.h"

#include "Cli/Failures/CommandErrors.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/UserDirectories.h"

#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

namespace varo::cli {

namespace fs = std::filesystem;

using platform::Error;
using platform::Result;
using platform::UserDirectories;

namespace {

bool isAlone(const fs::path& file) {
  std::error_code failed;
  const auto files = fs::directory_iterator(file.parent_path(), failed);
  return !failed && std::distance(begin(files), end(files)) == 1;
}

/// Under the compatible policy an object can end up in several files, each with a part of its
/// bytes.
platform::ErrorPtr spread() {
  return Error::make(kCommandLineErrorDomain, kCodeSeveralFiles,
                     "the object was spread over several files; use --policy safe");
}

}  // namespace

Result<std::unique_ptr<StagedDownload>> StagedDownload::begin() {
  const std::string documents = UserDirectories::current()->documents();
  std::error_code failed;
  fs::create_directories(documents, failed);
  if (failed) return Error::fromErrno(failed.value(), "cannot make the directory", documents);
  // In the documents directory itself: the move at the end is then a rename on one file system,
  // which nobody can see half done.
  return beginIn(documents);
}

Result<std::unique_ptr<StagedDownload>> StagedDownload::beginIn(const std::string& parent) {
  Result<TemporaryDirectory> directory = TemporaryDirectory::makeIn(parent);
  if (!directory) return directory.error();
  return std::unique_ptr<StagedDownload>(
      new StagedDownload(UserDirectories::current(), std::move(directory).value()));
}

StagedDownload::StagedDownload(std::shared_ptr<const UserDirectories> real,
                               TemporaryDirectory directory)
    : real_(std::move(real)), directory_(std::move(directory)) {
  UserDirectories::install(UserDirectories::below(directory_.path()));
}

StagedDownload::~StagedDownload() { UserDirectories::install(real_); }

Result<platform::Data> StagedDownload::content(const std::string& path) const {
  if (!isAlone(path)) return spread();
  return platform::Data::fromFile(path);
}

Result<std::string> StagedDownload::publish(const std::string& path) const {
  if (!isAlone(path)) return spread();
  const std::string documents = UserDirectories::current()->documents();
  // The same place below the real directory as the file has below the hidden one.
  const fs::path target = real_->documents() / fs::path(path).lexically_relative(documents);
  std::error_code failed;
  fs::create_directories(target.parent_path(), failed);
  if (!failed) fs::rename(path, target, failed);
  if (failed)
    return Error::fromErrno(failed.value(), "cannot move the download to", target.string());
  return target.string();
}

}  // namespace varo::cli
