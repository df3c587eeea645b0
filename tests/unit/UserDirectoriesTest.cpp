#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryDirectory.h"

#include <fstream>
#include <optional>

namespace varo::platform {
namespace {

using varo::test::TemporaryDirectory;

using Setting = std::optional<std::string>;

/// The variables that name the user's directories.
struct Environment {
  Environment(const Setting& homeValue, const Setting& configValue, const Setting& dataValue)
      : home("HOME", homeValue),
        config("XDG_CONFIG_HOME", configValue),
        data("XDG_DATA_HOME", dataValue) {
    UserDirectories::install(nullptr);
  }
  ~Environment() { UserDirectories::install(nullptr); }
  Environment(const Environment&) = delete;
  Environment& operator=(const Environment&) = delete;

  const test::EnvironmentVariable home, config, data;
};

TEST(UserDirectoriesTest, FollowsTheUsersSettingsAndIgnoresBrokenOnes) {
  const TemporaryDirectory config;
  const struct {
    std::string_view line, downloads;
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
    const Environment environment("/home/u/", config.path(), {});
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
    const Environment environment(home.path(), "relative", "/data/");
    EXPECT_EQ(UserDirectories::current()->downloads(), home / "Load");
    EXPECT_EQ(UserDirectories::current()->documents(), home / "Documents");
    EXPECT_EQ(UserDirectories::current()->library(), "/data/varobinary");
  }
  for (const Setting& value : {Setting(), Setting(""), Setting("relative")}) {
    const Environment environment(value, {}, {});
    EXPECT_EQ(UserDirectories::current()->documents().front(), '/');
  }
}

}  // namespace
}  // namespace varo::platform
