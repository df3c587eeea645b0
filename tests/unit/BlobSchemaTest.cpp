#include "Sandbox/Blobs/ExampleDatabase.h"
#include "tests/support/BlobFixture.h"

#include <regex>

namespace varo::binary {
namespace {

using BlobSchemaTest = test::BlobFixture;
/// The two groups of each match, as the fixture's `rows` writes cells.
std::string matches(const std::string& text, const char* pattern) {
  const std::regex expression(pattern);
  std::string found;
  for (std::sregex_iterator match(text.begin(), text.end(), expression); match != decltype(match)();
       ++match) {
    found += (found.empty() ? "" : "\n") + match->str(1) + "|" + match->str(2);
  }
  return found;
}

TEST_F(BlobSchemaTest, DocumentAndExampleHaveEveryColumnAndState) {
  const std::string folder = VARO_SOURCE_DIR;
  const std::string document = test::contentOf(folder + "/docs/schema.md");
  const char* ofTable = "SELECT name, type FROM pragma_table_info('varosyncBLOBSTOREMANAGER')";
  const std::string columns = rows(ofTable);
  EXPECT_THAT(document, testing::HasSubstr(blobs::kCreateTable));
  EXPECT_EQ(matches(document, "\n\\| `(\\w+)` \\| ([A-Z]+) \\|"), columns);
  std::filesystem::remove(databasePath());
  ASSERT_EQ(sandbox::ExampleDatabase::make(databasePath()), std::nullopt);
  EXPECT_EQ(rows(ofTable), columns);
  const std::string states =
      matches(test::contentOf(folder + "/Binary/Binary/BinaryDataManager/BlobStoreTable.h"),
              "std::int32_t k(\\w+) = (\\d+);");
  EXPECT_EQ(std::count(states.begin(), states.end(), '|'), 9);
  EXPECT_EQ(matches(document, "\n\\| `k(\\w+)` \\| (\\d+) \\|"), states);
}

}  // namespace
}  // namespace varo::binary
