#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/TemporaryDirectory.h"

#include <fstream>
#include <map>
#include <optional>

namespace varo::platform {
namespace {

using varo::test::TemporaryDirectory;

/// Sets or removes the variables that name the user's directories, and puts them back.
class Environment {
 public:
  explicit Environment(const std::map<std::string, std::string>& values) {
    for (const char* name : {"HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME"}) {
      const char* value = std::getenv(name);
      before_[name] = value != nullptr ? std::optional<std::string>(value) : std::nullopt;
      const auto given = values.find(name);
      set(name, given != values.end() ? std::optional(given->second) : std::nullopt);
    }
    UserDirectories::install(nullptr);
  }
  ~Environment() {
    for (const auto& [name, value] : before_) set(name, value);
    UserDirectories::install(nullptr);
  }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

 private:
  static void set(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      ::setenv(name.c_str(), value->c_str(), 1);
    } else {
      ::unsetenv(name.c_str());
    }
  }
  std::map<std::string, std::optional<std::string>> before_;
};

TEST(UserDirectoriesTest, FollowsTheUsersSettingsAndIgnoresBrokenOnes) {
  const TemporaryDirectory config;
  const struct {
    std::string_view line;
    std::string_view downloads;
  } cases[] = {
      {"", "/home/u/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"$HOME/Load\"", "/home/u/Load"},
      {"  XDG_DOWNLOAD_DIR=\"/mnt/load/\"  # mine", "/mnt/load"},
      {R"(XDG_DOWNLOAD_DIR="$HOME/a \"b\" \$c\\d")", R"(/home/u/a "b" $c\d)"},
      {"XDG_DOWNLOAD_DIR=\"/good\"\nXDG_DOWNLOAD_DIR=\"relative\"", "/good"},
      {"XDG_DOWNLOAD_DIR=\"$HOMER/x\"", "/home/u/Downloads"},
      {"XDG_DOWNLOAD_DIR=/unquoted", "/home/u/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"/open", "/home/u/Downloads"},
      {"XDG_DOWNLOAD_DIR=\"/open\\", "/home/u/Downloads"},
      {"XDG_DOWNLOAD_DIRECTORY=\"/other\"", "/home/u/Downloads"},
  };
  for (const auto& item : cases) {
    std::ofstream(config / "user-dirs.dirs") << "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Papers\"\r\n"
                                             << item.line;
    const Environment environment({{"HOME", "/home/u/"}, {"XDG_CONFIG_HOME", config.path()}});
    const auto directories = UserDirectories::current();
    EXPECT_EQ(directories->downloads(), item.downloads) << item.line;
    EXPECT_EQ(directories->documents(), "/home/u/Papers");
    EXPECT_EQ(directories->library(), "/home/u/.local/share/varobinary");
  }
}

TEST(UserDirectoriesTest, WithoutSettingsTheyStandBelowHome) {
  const TemporaryDirectory home;
  ASSERT_TRUE(std::filesystem::create_directory(home / ".config"));
  std::ofstream(home / ".config/user-dirs.dirs") << "XDG_DOWNLOAD_DIR=\"$HOME/Load\"\n";
  {
    const Environment environment(
        {{"HOME", home.path()}, {"XDG_CONFIG_HOME", "relative"}, {"XDG_DATA_HOME", "/data/"}});
    EXPECT_EQ(UserDirectories::current()->downloads(), home / "Load");
    EXPECT_EQ(UserDirectories::current()->documents(), home / "Documents");
    EXPECT_EQ(UserDirectories::current()->library(), "/data/varobinary");
  }
  for (const auto& values :
       {std::map<std::string, std::string>{}, {{"HOME", ""}}, {{"HOME", "relative"}}}) {
    const Environment environment(values);
    EXPECT_EQ(UserDirectories::current()->documents().front(), '/');
  }
}

}  // namespace
}  // namespace varo::platform
