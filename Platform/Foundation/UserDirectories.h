#pragma once

#include <memory>
#include <string>

namespace varo::platform {

/// Where the user's files live. Paths are absolute, without a slash at the end; the directories
/// need not exist.
class UserDirectories {
 public:
  virtual ~UserDirectories() = default;
  [[nodiscard]] virtual std::string documents() const = 0;
  [[nodiscard]] virtual std::string downloads() const = 0;
  [[nodiscard]] virtual std::string library() const = 0;

  /// The directories in force. By default the XDG user directories: documents and downloads of
  /// user-dirs.dirs (else ~/Documents and ~/Downloads), library $XDG_DATA_HOME/varobinary (else
  /// ~/.local/share/varobinary), read once. Thread-safe.
  [[nodiscard]] static std::shared_ptr<const UserDirectories> current();
  /// Puts others in force, for operations that start from now on; null restores the default,
  /// read anew. Thread-safe.
  static void install(std::shared_ptr<const UserDirectories> directories);

  /// Documents, Downloads and Library below one directory. A relative path counts from the current
  /// directory.
  [[nodiscard]] static std::shared_ptr<const UserDirectories> below(const std::string& home);
};

}  // namespace varo::platform
