// The table of blobs as the library, its document and the sandbox's example have it.

#include "Sandbox/ExampleDatabase.h"
#include "tests/support/BlobFixture.h"

#include <regex>

namespace varo::binary {
namespace {

using namespace testing;

using BlobSchemaTest = test::BlobFixture;
using Pairs = std::vector<std::pair<std::string, std::string>>;

/// The two groups of each match, in order.
Pairs matches(const std::string& text, const char* pattern) {
  const std::regex expression(pattern);
  Pairs pairs;
  for (std::sregex_iterator match(text.begin(), text.end(), expression), end; match != end;
       ++match) {
    pairs.emplace_back((*match)[1], (*match)[2]);
  }
  return pairs;
}

/// Names and types of the columns in this database.
Pairs columnsIn(const std::string& path) {
  const SQLite::Database database(path);
  SQLite::Statement statement(database,
                              std::string("PRAGMA table_info(") + kVaroSyncBlobStoreMangager + ")");
  Pairs columns;
  while (statement.executeStep()) {
    columns.emplace_back(statement.getColumn(1).getString(), statement.getColumn(2).getString());
  }
  return columns;
}

TEST_F(BlobSchemaTest, DocumentHasEveryColumnAndState) {
  const std::string folder = VARO_SOURCE_DIR;
  const std::string document = test::contentOf(folder + "/docs/schema.md");
  EXPECT_THAT(document, HasSubstr(blobs::kCreateTable));
  EXPECT_EQ(matches(document, "\n\\| `(\\w+)` \\| ([A-Z]+) \\|"), columnsIn(databasePath()));

  const std::string header =
      test::contentOf(folder + "/Binary/Binary/BinaryDataManager/BlobStoreTable.h");
  const Pairs states = matches(header, "std::int32_t (k\\w+) = (\\d+);");
  EXPECT_EQ(states.size(), 9U);
  Pairs told;
  for (const auto& [number, name] : matches(document, "\n\\| (\\d+) \\| `(k\\w+)` \\|")) {
    told.emplace_back(name, number);
    EXPECT_THAT(document, HasSubstr("\n    s" + number + ": " + number + " ")) << "in the diagram";
  }
  EXPECT_EQ(told, states);
}

TEST_F(BlobSchemaTest, ExampleDatabaseHasTheSameColumns) {
  const std::string path = home_ / "example.db";
  ASSERT_EQ(sandbox::ExampleDatabase::make(path), std::nullopt);
  EXPECT_EQ(columnsIn(path), columnsIn(databasePath()));
}

}  // namespace
}  // namespace varo::binary
