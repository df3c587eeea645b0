#include "Cli/Failures/StorageFailure.h"

#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

namespace varo::cli {

void describeStorageFailure(const platform::Dictionary& failure, const std::string& directory,
                            FailureText& text) {
  const std::string path = failure["path"].textValue();
  const std::string* words = failure[platform::kLocalizedDescriptionKey].text();
  if (words != nullptr) text.message = *words;
  const std::string folder =
      path.empty() ? directory : std::filesystem::path(path).parent_path().string();
  text.hint = fmt::format("Check the room and the permissions of {}.", printable(folder));
  std::error_code failed;
  if (folder.empty() || std::filesystem::is_directory(folder, failed)) return;
  // The library has tried as well, and had nobody to tell.
  failed.clear();
  std::filesystem::create_directories(folder, failed);
  if (failed) text.message = fmt::format("cannot make the folder {}: {}", folder, failed.message());
}

}  // namespace varo::cli
