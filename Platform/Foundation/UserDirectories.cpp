#include "Platform/Foundation/UserDirectories.h"

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Mutex.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <pwd.h>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace varo::platform {
namespace {

/// The file that names the user's directories has a dozen lines; what is larger is not it.
constexpr std::uint64_t kLargestUserDirs = std::uint64_t{64} * 1024;
constexpr std::size_t kPasswdBuffer = std::size_t{16} * 1024;

std::string withoutTrailingSlash(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

/// The variable's value where it is an absolute path; the XDG base directories ask for others to be
/// ignored.
std::optional<std::string> absoluteFromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr || *value != '/') return std::nullopt;
  return withoutTrailingSlash(value);
}

std::string homeDirectory() {
  if (auto home = absoluteFromEnvironment("HOME")) return *std::move(home);
  struct passwd entry {};
  struct passwd* found = nullptr;
  std::vector<char> buffer(kPasswdBuffer);
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  if (found != nullptr && found->pw_dir != nullptr && *found->pw_dir == '/') {
    return withoutTrailingSlash(found->pw_dir);
  }
  return "/";
}

std::string append(const std::string& directory, std::string_view name) {
  std::string path = directory == "/" ? directory : directory + '/';
  return path += name;
}

/// The path in a line's value: `"$HOME/name"` or `"/name"`, with a shell's backslashes.
std::optional<std::string> unquote(std::string_view value, const std::string& home) {
  if (!value.starts_with('"')) return std::nullopt;
  value.remove_prefix(1);
  std::string path;
  constexpr std::string_view kHome = "$HOME";
  if (value.starts_with(kHome)) {
    value.remove_prefix(kHome.size());
    if (!value.starts_with('/') && !value.starts_with('"')) return std::nullopt;
    path = home == "/" ? "" : home;
  } else if (!value.starts_with('/')) {
    return std::nullopt;
  }
  for (std::size_t i = 0; i < value.size(); ++i) {
    if (value[i] == '"') return withoutTrailingSlash(path.empty() ? "/" : path);
    if (value[i] == '\\' && i + 1 < value.size()) ++i;
    path += value[i];
  }
  return std::nullopt;  // no closing quote
}

/// The last setting of `key` in the text of user-dirs.dirs.
std::optional<std::string> setting(std::string_view text, std::string_view key,
                                   const std::string& home) {
  constexpr std::string_view kBlanks = " \t\r";
  std::optional<std::string> result;
  while (!text.empty()) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    line.remove_prefix(std::min(line.find_first_not_of(kBlanks), line.size()));
    if (!line.starts_with(key) || !line.substr(key.size()).starts_with('=')) continue;
    if (auto path = unquote(line.substr(key.size() + 1), home)) result = std::move(path);
  }
  return result;
}

class FixedDirectories final : public UserDirectories {
 public:
  FixedDirectories(std::string documents, std::string downloads, std::string library)
      : documents_(std::move(documents)),
        downloads_(std::move(downloads)),
        library_(std::move(library)) {}

  [[nodiscard]] std::string documents() const override { return documents_; }
  [[nodiscard]] std::string downloads() const override { return downloads_; }
  [[nodiscard]] std::string library() const override { return library_; }

 private:
  const std::string documents_;
  const std::string downloads_;
  const std::string library_;
};

std::shared_ptr<const UserDirectories> fromEnvironment() {
  const std::string home = homeDirectory();
  const auto config = absoluteFromEnvironment("XDG_CONFIG_HOME");
  const auto file =
      Data::fromFile((config ? *config : append(home, ".config")) + "/user-dirs.dirs");
  const Result<std::string> read = file.ok() ? file->readAll(kLargestUserDirs) : std::string();
  const std::string text = read.ok() ? *read : std::string();
  const auto documents = setting(text, "XDG_DOCUMENTS_DIR", home);
  const auto downloads = setting(text, "XDG_DOWNLOAD_DIR", home);
  const auto data = absoluteFromEnvironment("XDG_DATA_HOME");
  return std::make_shared<FixedDirectories>(
      documents ? *documents : append(home, "Documents"),
      downloads ? *downloads : append(home, "Downloads"),
      append(data ? *data : append(home, ".local/share"), "varobinary"));
}

/// The directories in force.
class Slot {
 public:
  [[nodiscard]] std::shared_ptr<const UserDirectories> get() {
    const MutexLock lock(mutex_);
    return directories_;
  }
  std::shared_ptr<const UserDirectories> getOrSet(std::shared_ptr<const UserDirectories> fallback) {
    const MutexLock lock(mutex_);
    if (directories_ == nullptr) directories_ = std::move(fallback);
    return directories_;
  }
  void set(std::shared_ptr<const UserDirectories> directories) {
    const MutexLock lock(mutex_);
    directories_.swap(directories);  // the old ones go with the parameter, after the lock
  }

 private:
  Mutex mutex_;
  // Null: the default, not read yet.
  std::shared_ptr<const UserDirectories> directories_ VARO_GUARDED_BY(mutex_);
};

Slot& slot() {
  // Never destroyed: threads that end late may still ask.
  static Slot* const kept = std::make_unique<Slot>().release();
  return *kept;
}

}  // namespace

std::shared_ptr<const UserDirectories> UserDirectories::current() {
  if (auto directories = slot().get()) return directories;
  return slot().getOrSet(fromEnvironment());
}

void UserDirectories::install(std::shared_ptr<const UserDirectories> directories) {
  slot().set(std::move(directories));
}

std::shared_ptr<const UserDirectories> UserDirectories::below(const std::string& home) {
  std::error_code ignored;  // only the current directory's own absence fails; then as given
  const std::string base = withoutTrailingSlash(std::filesystem::absolute(home, ignored).string());
  return std::make_shared<FixedDirectories>(append(base, "Documents"), append(base, "Downloads"),
                                            append(base, "Library"));
}

}  // namespace varo::platform
