#include "Binary/Binary/BinaryDataManager/BlobFiles.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "Platform/Database/DatabaseError.h"
#include "tests/support/BlobFixture.h"

namespace varo::binary {
namespace {

using platform::Dictionary;

const std::string kNoRow = " 5004 Row with the given primary keys does not exist.";

class BlobFilesTest : public test::BlobFixture {
 protected:
  /// The blob id, whether recorded, whether the file was removed, and the error.
  std::string deletionOf(const std::string& pk, bool removeNow,
                         const std::string& column = kColumn) {
    manager_->deleteBinaryObjectForPrimaryKeys(
        {{"pk", pk}}, kDatabase, kTable, column, {{"shouldDeleteBeforeSyncSession", removeNow}},
        [log = block("delete")](const auto& blobId, bool recorded, bool removed,
                                const auto& error) {
          log(blobId, error, Dictionary{{"recorded", recorded}, {"removed", removed}});
        });
    const Call call = awaitNext();
    const auto flag = [&](const char* key) { return (*call.result)[key].boolValue() ? "1" : "0"; };
    return call.blobId.value_or("none") + " " + flag("recorded") + flag("removed") + " " +
           textOf(call.error);
  }
  [[nodiscard]] std::string blobRows() const {
    return rows("SELECT id, localPath, state FROM varosyncBLOBSTOREMANAGER");
  }
};

TEST_F(BlobFilesTest, PathIsThatOfAUsableFile) {
  const std::string none =
      "DownloadTaskErrorDomain 5001 Couldn't retrieve file path respective blob id in "
      "BlobStoreManager.";
  const struct {
    int state;
    std::string path, compatible, safe;
  } cases[] = {{50, "/a", "/a", "/a"},   {71, "/a", "/a", "/a"},   {74, "/a", "/a", "/a"},
               {101, "/a", none, none},  {102, "/a", none, none},  {103, "/a", none, none},
               {104, "/a", none, none},  {201, "/a", none, none},  {202, "/a", none, none},
               {50, "", none, none},     {50, "NULL", none, none}, {50, "a", "a", none},
               {71, "a/b", "a/b", none}, {101, "a", none, none}};
  int id = 0;
  for (const auto& item : cases) {
    ++id;
    addBlob(std::to_string(id), id, item.state, item.path);
    setTransferPolicy(TransferPolicy::kCompatible);
    EXPECT_EQ(pathFor(std::to_string(id)), item.compatible) << item.state << item.path;
    setTransferPolicy(TransferPolicy::kSafe);
    EXPECT_EQ(pathFor(std::to_string(id)), item.safe) << item.state << item.path;
  }
  addRecord("new");
  sql("INSERT INTO album VALUES ('null', NULL), ('lost', '99')");
  for (const char* pk : {"new", "null", "lost"}) EXPECT_EQ(pathFor(pk), none);
  EXPECT_EQ(pathFor("1", "nocolumn"), none);
  EXPECT_EQ(pathFor("absent"), "DownloadTaskErrorDomain" + kNoRow);
}

TEST_F(BlobFilesTest, DeletionIsRecordedForTheSyncEngine) {
  const std::string file = home_ / "file";
  for (const bool removeNow : {false, true}) {
    makeDatabase();
    std::ofstream(file) << "bytes";
    addBlob("a", 7, 50, file);
    addRecord("new");
    EXPECT_EQ(deletionOf("a", removeNow), removeNow ? "7 11 ok" : "7 10 ok");
    EXPECT_EQ(blobRows(), removeNow ? "7|NULL|201" : "7|" + file + "|201");
    EXPECT_EQ(rows("SELECT typeof(localPath) FROM varosyncBLOBSTOREMANAGER"), "text");
    EXPECT_EQ(std::filesystem::exists(file), !removeNow);
    EXPECT_EQ(deletionOf("new", removeNow), "8 10 ok");
    EXPECT_EQ(rows("SELECT blobref_photo, tableName, columnName, state FROM album, "
                   "varosyncBLOBSTOREMANAGER WHERE pk = 'new' AND id = 8"),
              "8|album|photo|201");
  }
}

TEST_F(BlobFilesTest, DeletionDuringADownloadStaysRecordedUnderTheSafePolicy) {
  const std::tuple<TransferPolicy, std::string, std::string> cases[] = {
      {TransferPolicy::kCompatible, "201", "50"},
      {TransferPolicy::kSafe, "201", "201"},
      {TransferPolicy::kSafe, "202", "202"}};  // the sync engine has begun with it
  for (const auto& [policy, recorded, state] : cases) {
    setTransferPolicy(policy);
    makeDatabase();
    const std::string id = newBlob("a");
    startHeld(id);
    EXPECT_EQ(deletionOf("a", false), id + " 10 ok");
    sql("UPDATE varosyncBLOBSTOREMANAGER SET state = " + recorded);
    transport_->releaseAll();
    EXPECT_EQ(awaitNext().summary(), "start " + id + ": ok");
    EXPECT_EQ(blobRows(), id + "|" + pathOf(id) + "|" + state);
    manager_->clearBinaryDataManagerState();
  }
}

TEST_F(BlobFilesTest, DeletionThatCannotBeRecordedFails) {
  const std::string database = "DeleteBinaryDomain 7001 ";
  sql("INSERT INTO album VALUES ('lost', '99')");
  addRecord("new");
  addBlob("a", 7, 50);
  const std::string noRow = "Required row doesn't exist in varosyncBLOBSTOREMANAGER.";
  EXPECT_EQ(deletionOf("absent", false), "none 00 DeleteBinaryDomain" + kNoRow);
  EXPECT_EQ(BlobFiles::recordDeletion({kDatabase, kTable, kColumn, {}}, true, TransferPolicy::kSafe)
                .error->code(),
            5004);
  EXPECT_EQ(
      BlobFiles::filePath({kDatabase, kTable, kColumn, {}}, TransferPolicy::kSafe).error()->code(),
      5004);
  EXPECT_EQ(deletionOf("lost", true), "99 00 " + database + noRow);
  EXPECT_EQ(deletionOf("a", false, "nocolumn"), "none 00 " + database + noRow);
  sql("CREATE TRIGGER refuse BEFORE UPDATE ON album BEGIN SELECT RAISE(ABORT, 'no'); END;"
      "CREATE TRIGGER alike BEFORE UPDATE ON varosyncBLOBSTOREMANAGER"
      " BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_EQ(deletionOf("a", false), "7 00 " + database + "Error in updating parent table.");
  EXPECT_EQ(deletionOf("new", false),
            "8 00 " + database + "Error in updating row in varosyncBLOBSTOREMANAGER.");
  // A download carries on with the row that it could not link.
  EXPECT_EQ(create("new").blobId, "9");
  sql("DROP TABLE varosyncBLOBSTOREMANAGER");
  EXPECT_EQ(deletionOf("new", false),
            "none 00 " + database + "Error in inserting row in varosyncBLOBSTOREMANAGER.");
}

TEST_F(BlobFilesTest, DeletionThatIsBrokenOffCanBeRepeated) {
  const std::string file = home_ / "file";
  const std::string refused = " DeleteBinaryDomain 7001 Error in updating parent table.";
  // The row that the database refuses, and how far the deletion has come then.
  const struct {
    TransferPolicy policy;
    std::string when, outcome;
    bool fileThere;
    std::string row;
  } cases[] = {
      {TransferPolicy::kCompatible, "1", "00", false, "50"},
      {TransferPolicy::kSafe, "1", "00", true, "50"},
      {TransferPolicy::kSafe, "new.localPath = 'NULL'", "11", false, "201"},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.outcome + item.when);
    setTransferPolicy(item.policy);
    makeDatabase();
    std::ofstream(file) << "bytes";
    addBlob("a", 7, 50, file);
    sql("CREATE TRIGGER refuse BEFORE UPDATE ON varosyncBLOBSTOREMANAGER WHEN " + item.when +
        " BEGIN SELECT RAISE(ABORT, 'refused here'); END");
    const auto deletion =
        BlobFiles::recordDeletion({kDatabase, kTable, kColumn, {{"pk", "a"}}}, true, item.policy);
    EXPECT_EQ(deletion.recorded, item.outcome == "11");
    ASSERT_NE(deletion.error, nullptr);
    EXPECT_EQ(" " + textOf(deletion.error), refused);
    EXPECT_THAT(platform::firstCause(*deletion.error).description(),
                testing::HasSubstr("refused here"));
    EXPECT_EQ(std::filesystem::exists(file), item.fileThere);
    EXPECT_EQ(blobRows(), "7|" + file + "|" + item.row);
    sql("DROP TRIGGER refuse");
    EXPECT_EQ(deletionOf("a", true), "7 11 ok");
    EXPECT_EQ(blobRows(), "7|NULL|201");
    EXPECT_FALSE(std::filesystem::exists(file));
  }
}

TEST_F(BlobFilesTest, DeletionWhoseFileStaysIsTakenBackUnderTheSafePolicy) {
  setTransferPolicy(TransferPolicy::kSafe);
  const std::string undeletable = "/proc/self/status";  // a regular file that nobody may delete
  const std::string failure = " DeleteBinaryDomain 5001 The file of the blob could not be removed.";
  addBlob("a", 7, 50, undeletable);
  EXPECT_EQ(deletionOf("a", true), "7 00" + failure);
  EXPECT_EQ(blobRows(), "7|" + undeletable + "|50");
  // What cannot be taken back stays, and is told.
  sql("CREATE TRIGGER refuse BEFORE UPDATE ON varosyncBLOBSTOREMANAGER WHEN new.state = 50"
      " BEGIN SELECT RAISE(ABORT, 'no'); END");
  EXPECT_EQ(deletionOf("a", true), "7 10" + failure);
  EXPECT_EQ(blobRows(), "7|" + undeletable + "|201");
}

TEST_F(BlobFilesTest, OnlyTheRegularFileOfTheRowIsRemoved) {
  const std::string target = home_ / "target";
  std::ofstream(target) << "bytes";
  std::filesystem::create_symlink(target, home_ / "link");
  std::filesystem::create_directory(home_ / "folder");
  const std::string paths[] = {"", "NULL", "target", home_ / "link", home_ / "folder"};
  int id = 0;
  for (const TransferPolicy policy : {TransferPolicy::kCompatible, TransferPolicy::kSafe}) {
    setTransferPolicy(policy);
    for (const std::string& path : paths) {
      ++id;
      addBlob(std::to_string(id), id, 50, path);
      EXPECT_EQ(deletionOf(std::to_string(id), true),
                std::to_string(id) +
                    (policy == TransferPolicy::kSafe
                         ? " 00 DeleteBinaryDomain 5001 The file of the blob could not be removed."
                         : " 00 ok"));
      EXPECT_EQ(stateOf(std::to_string(id)), "50");
    }
  }
  EXPECT_THAT(home_.names(), testing::IsSupersetOf({"target", "link", "folder"}));
  EXPECT_FALSE(BlobFiles::removeFileAt(target + std::string("\0x", 2)));
  EXPECT_TRUE(BlobFiles::removeFileAt(target));
}

TEST_F(BlobFilesTest, ChangeOfARowThatIsGoneIsAFailureAndOneOfAViewIsNot) {
  const BlobStoreTable table(kDatabase, TransferPolicy::kSafe);
  addBlob("a", 7, 50);
  EXPECT_TRUE(table.update("7", {{"state", 50}})) << "changed to what it was";
  EXPECT_TRUE(table.updateInState("7", 102, {{"state", 104}})) << "in another state";
  EXPECT_EQ(stateOf("7"), "50") << "which stands";
  EXPECT_TRUE(table.setLink(kTable, kColumn, {{"pk", "a"}}, 8));
  for (const auto& result :
       {table.update("8", {{"state", 50}}), table.updateInState("8", 50, {{"state", 50}}),
        table.setLink(kTable, kColumn, {{"pk", "b"}}, 8)}) {
    ASSERT_FALSE(result);
    EXPECT_EQ(textOf(result.error()),
              "DownloadTaskErrorDomain 5 Couldn't retrieve row respective blob id in "
              "BlobStoreManager.");
  }
  sql("ALTER TABLE album RENAME TO albums; CREATE VIEW album AS SELECT * FROM albums;"
      "CREATE TRIGGER write INSTEAD OF UPDATE ON album BEGIN UPDATE albums SET "
      "blobref_photo = new.blobref_photo WHERE pk = old.pk; END");
  EXPECT_TRUE(table.setLink(kTable, kColumn, {{"pk", "a"}}, 9));
  EXPECT_EQ(rows("SELECT blobref_photo FROM albums"), "9");
  sql("DROP TABLE varosyncBLOBSTOREMANAGER");
  EXPECT_EQ(table.update("7", {{"state", 50}}).error()->domain(), platform::kSqliteErrorDomain);
}

}  // namespace
}  // namespace varo::binary
