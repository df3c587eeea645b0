#include "Binary/Binary/DownloadTask/FileFailure.h"

#include "Binary/Binary/SourceNames.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

namespace varo::binary {

namespace {

constexpr char kPath[] = "path";
constexpr std::string_view kFileNotThere = "FileDoesn't exist at path.";

}  // namespace

Dictionary fileFailure(std::string_view message, const ErrorPtr& cause, const std::string& path) {
  return {{std::string(platform::kErrorMessageKey), message},
          {std::string(platform::kLocalizedDescriptionKey), cause->localizedDescription()},
          {kPath, path},
          {std::string(platform::kUnderlyingError), cause}};
}

Dictionary creationFailure(const ErrorPtr& cause, const std::string& path) {
  // A folder that is missing could not be made, and why tells more.
  std::error_code reason;
  const std::string folder = std::filesystem::path(path).parent_path().string();
  if (cause->code() == ENOENT) std::filesystem::create_directories(folder, reason);
  return fileFailure(kFileNotThere,
                     reason ? Error::fromErrno(reason.value(), "Creating", folder) : cause, path);
}

}  // namespace varo::binary
