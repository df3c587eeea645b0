#include "Platform/Foundation/UserDirectories.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/TemporaryDirectory.h"

#include <fstream>
#include <optional>

namespace varo::platform {
namespace {

using varo::test::TemporaryDirectory;

using Setting = std::optional<std::string>;

/// The user's directories with these variables in the environment.
std::shared_ptr<const UserDirectories> directoriesWith(const Setting& home, const Setting& config,
                                                       const Setting& data) {
  const test::EnvironmentVariable homeVariable("HOME", home);
  const test::EnvironmentVariable configVariable("XDG_CONFIG_HOME", config);
  const test::EnvironmentVariable dataVariable("XDG_DATA_HOME", data);
  UserDirectories::install(nullptr);
  auto directories = UserDirectories::current();
  UserDirectories::install(nullptr);
  return directories;
}

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
      {"XDG_DOWNLOAD_DIR=\"/open", "/home/u/Downloads"},
      {"XDG_DOWNLOAD_DIRECTORY=\"/other\"", "/home/u/Downloads"},
  };
  for (const auto& item : cases) {
    std::ofstream(config / "user-dirs.dirs") << "# comment\nXDG_DOCUMENTS_DIR=\"$HOME/Papers\"\r\n"
                                             << item.line;
    const auto directories = directoriesWith("/home/u/", config.path(), {});
    EXPECT_EQ(directories->downloads(), item.downloads) << item.line;
    EXPECT_EQ(directories->documents(), "/home/u/Papers");
    EXPECT_EQ(directories->library(), "/home/u/.local/share/varobinary");
  }
}

TEST(UserDirectoriesTest, WithoutSettingsTheyStandBelowHome) {
  const TemporaryDirectory home;
  ASSERT_TRUE(std::filesystem::create_directory(home / ".config"));
  std::ofstream(home / ".config/user-dirs.dirs") << "XDG_DOWNLOAD_DIR=\"$HOME/Load\"\n";
  const auto directories = directoriesWith(home.path(), "relative", "/data/");
  EXPECT_EQ(directories->downloads(), home / "Load");
  EXPECT_EQ(directories->documents(), home / "Documents");
  EXPECT_EQ(directories->library(), "/data/varobinary");
  for (const Setting& value : {Setting(), Setting(""), Setting("relative")}) {
    EXPECT_EQ(directoriesWith(value, {}, {})->documents().front(), '/');
  }
}

}  // namespace
}  // namespace varo::platform
