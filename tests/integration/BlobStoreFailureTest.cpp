#include "Platform/Foundation/File.h"
#include "tests/support/BlobStoreFixture.h"
#include "varo/client.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace varo {
namespace {

using sandbox::BlobObject;
using test::contentOf;
using testing::HasSubstr;
namespace fs = std::filesystem;

using BlobStoreFailureTest = test::BlobStoreFixture;

TEST_F(BlobStoreFailureTest, OpenNamesWhatIsWrong) {
  makeDatabase("a");
  std::ofstream(path("text.db")) << "this is no database, but a text that goes on for a while";
  SQLite::Database(path("empty.db"), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
      .exec("CREATE TABLE varosyncBLOBSTOREMANAGER (id INTEGER PRIMARY KEY)");
  struct Case {
    std::string database, files;
    std::function<void(BlobService&)> spoil;
    Kind kind;
    std::string words;
  };
  const auto none = [](BlobService&) {};
  const std::vector<Case> cases = {
      {"none.db", "a", none, Kind::kDatabase, "none.db"},
      {"text.db", "a", none, Kind::kDatabase, "text.db"},
      {"empty.db", "a", none, Kind::kDatabase, "localPath"},
      {"a.db", "none", none, Kind::kLocalFile, "none"},
      {"a.db", "a.db", none, Kind::kLocalFile, "a.db"},
      {"a.db", "a", [](auto& s) { s.rangeSize = 0_B; }, Kind::kInvalidArgument, "rangeSize"},
      {"a.db", "a", [](auto& s) { s.parallelRanges = 65; }, Kind::kInvalidArgument, "from 1 to 64"},
      {"a.db", "a", [](auto& s) { s.scope = ""; }, Kind::kInvalidArgument, "scope"},
      {"a.db", "a", [](auto& s) { s.options.url = "a"; }, Kind::kInvalidArgument, "Options::url"},
  };
  for (const Case& wanted : cases) {
    BlobService spoilt = service("a");
    wanted.spoil(spoilt);
    const auto refused = BlobStore::open(path(wanted.database), path(wanted.files), spoilt);
    ASSERT_FALSE(refused) << wanted.words;
    EXPECT_EQ(nameOf(refused.error().kind), nameOf(wanted.kind)) << refused.error().message;
    EXPECT_THAT(refused.error().message, HasSubstr(wanted.words));
  }
}

TEST_F(BlobStoreFailureTest, TellsWhatKindOfFailureItWas) {
  makeDatabase("a", 2);
  const BlobStore store = open("a");
  std::shared_ptr<platform::File> busy;
  struct Case {
    std::string name;
    BlobRef blob;
    sandbox::FaultAction action;
    Kind kind;
  };
  BlobRef noTable = blob(1);
  noTable.table = "albums";
  BlobRef noColumn = blob(1);
  noColumn.column = "foto";
  const std::vector<Case> cases = {
      {"no record", blob(9), {}, Kind::kNotFound},
      {"no table", noTable, {}, Kind::kDatabase},
      {"no column", noColumn, {}, Kind::kInvalidArgument},
      {"no keys", {.table = "album", .column = "photo", .keys = {}}, {}, Kind::kInvalidArgument},
      {"429", blob(1), {.status = 429, .headers = {{"Retry-After", "7"}}}, Kind::kThrottled},
      {"other range", blob(1), {.shiftRange = 7}, Kind::kIntegrity},
      {"dropped", blob(1), {.drop = true}, Kind::kNoConnection},
      {"file in use", blob(1), {.status = 200}, Kind::kConflict},
      {"no file", blob(1), {}, Kind::kLocalFile},
      {"no row", blob(1), {}, Kind::kDatabase},
      {"full", blob(2), {}, Kind::kDiskFull},
  };
  for (const Case& wanted : cases) {
    server_->clearFaults();
    server_->addFault({.match = {.path = "/binary"}, .action = wanted.action});
    if (wanted.name == "file in use") {
      busy = platform::File::createNew(path("a/.1.partial")).value();
      ASSERT_TRUE(busy->lock());
    } else if (wanted.name == "no file") {
      busy.reset();
      fs::remove(path("a/.1.partial"));
      fs::create_directory(path("a/1"));
    } else if (wanted.name == "no row") {
      fs::remove(path("a/1"));
      sql("a",
          "CREATE TRIGGER full BEFORE UPDATE ON varosyncBLOBSTOREMANAGER WHEN NEW.state = 50 "
          "BEGIN SELECT RAISE(FAIL, 'no'); END");
    } else if (wanted.name == "full") {
      // What a full disk is told by: there is no id left for a new row.
      sql("a", "INSERT INTO varosyncBLOBSTOREMANAGER (id) VALUES (9223372036854775807)");
    }
    const auto outcome = store.fetch(wanted.blob).get();
    ASSERT_FALSE(outcome) << wanted.name;
    EXPECT_EQ(nameOf(outcome.error().kind), nameOf(wanted.kind))
        << wanted.name << ": " << outcome.error().message;
    EXPECT_EQ(outcome.error().retryAfter.has_value(), wanted.name == "429");
    EXPECT_THAT(outcome.error().message,
                HasSubstr(wanted.blob.column + " of " + wanted.blob.table + " ("));
  }
  fs::remove(database("a"));
  EXPECT_EQ(store.states().error().kind, Kind::kDatabase);
  EXPECT_EQ(store.state(blob(1)).error().kind, Kind::kDatabase);
  EXPECT_EQ(store.fetch(blob(1)).get().error().kind, Kind::kDatabase);
}

TEST_F(BlobStoreFailureTest, WhatComesInBase64IsDecodedOrRefusedButNeverTakenForTheObject) {
  makeDatabase("a", 2);
  const auto error =
      server_->putBlob({"a", "album", {{"pk", "1"}}},
                       BlobObject{{{2'000'000, 1}}, BlobObject::Mode::kBase64, {}, {}});
  ASSERT_FALSE(error) << error->message;
  const auto refused = open("a").fetch(blob(1)).get();
  ASSERT_FALSE(refused);
  EXPECT_THAT(refused.error().message, HasSubstr("came in Base64"));
  BlobService wanted = service("a");
  wanted.encoding = BlobEncoding::kBase64;
  const BlobStore store = BlobStore::open(database("a"), path("a"), wanted).value();
  const auto file = store.fetch(blob(1)).get();
  ASSERT_TRUE(file) << file.error().message;
  std::string bytes(2'000'000, '\0');
  ASSERT_EQ(sandbox::GeneratedBytes(1, bytes.size()).readAt(0, bytes), 2'000'000);
  EXPECT_TRUE(contentOf(*file) == bytes);
  EXPECT_EQ(contentOf(store.fetch(blob(2)).get().value()), photo("a", 2)) << "sent as bytes";
}

TEST_F(BlobStoreFailureTest, PathsAreThoseOfTheSystemBehindALinkToo) {
  makeDatabase("a");
  fs::create_directories(path("far/away"));
  fs::create_directory_symlink(path("far/away"), path("link"));
  fs::rename(database("a"), path("far/a.db"));
  fs::rename(path("a"), path("far/a"));
  const auto store = BlobStore::open(path("link/../a.db"), path("link/../a"), service("a"));
  ASSERT_TRUE(store) << store.error().message;
  const auto file = store->fetch(blob(1)).get();
  ASSERT_TRUE(file) << file.error().message;
  EXPECT_EQ(contentOf(path("far/a/1")), photo("a", 1));
}

}  // namespace
}  // namespace varo
