#pragma once

#include "Binary/Binary/BinaryDataManager/BinaryDataManager.h"
#include "Binary/Binary/BinaryDataManager/BlobStoreTable.h"
#include "tests/support/OfflineFixture.h"
#include "tests/support/RangedObject.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

#include <algorithm>
#include <fstream>
#include <optional>

namespace varo::test {

/// The manager of blobs over a real database with the table `album`, whose records (`pk`) have the
/// binary column `photo`. Checks at the end that no block was called that the test did not await.
class BlobFixture : public OfflineFixture {
 protected:
  static constexpr const char* kDatabase = "sync.db";
  static constexpr const char* kTable = "album";
  static constexpr const char* kColumn = "photo";
  /// Bytes of a range.
  static constexpr std::int64_t kChunk = 4;

  static constexpr const char* kNotPausable =
      "DownloadTaskErrorDomain 5001 Task is in NotStarted, Errored or Ended state. Hence, can't be "
      "Paused.";
  static constexpr const char* kNotResumable =
      "DownloadTaskErrorDomain 5001 Task is in Started, Ended or Errored state hence can't "
      "resumed.";

  /// One call of a block.
  struct Call {
    std::string block;
    std::optional<std::string> blobId;
    platform::ErrorPtr error;
    std::optional<platform::Dictionary> result;

    /// The block, and the error's domain, code and message, or "ok".
    [[nodiscard]] std::string summary() const { return block + ": " + textOf(error); }
  };

  BlobFixture() {
    makeDatabase();
    transport_->setHandler(
        [object = object_](const RecordedRequest& request) { return object.answer(request); });
  }
  ~BlobFixture() override {
    manager_->clearBinaryDataManagerState();
    transport_->releaseAll();
    awaitEndOfTasks();
    EXPECT_EQ(calls().size(), awaited_);
  }

  // The database.

  [[nodiscard]] std::string databasePath() const {
    return home_ / "Library/WEBSQLDIRECTORY/" + std::string(kDatabase);
  }
  /// A new database with the two empty tables.
  void makeDatabase() const {
    const std::filesystem::path path = databasePath();
    std::filesystem::create_directories(path.parent_path());
    std::filesystem::remove(path);
    SQLite::Database(path.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE)
        .exec(std::string("CREATE TABLE album (pk TEXT PRIMARY KEY, blobref_photo TEXT);") +
              binary::blobs::kCreateTable);
  }
  void sql(const std::string& statements) const {
    SQLite::Database(databasePath(), SQLite::OPEN_READWRITE, 5000).exec(statements);
  }
  /// The rows of a query, cells separated by "|", rows by a line break.
  [[nodiscard]] std::string rows(const std::string& query) const {
    const SQLite::Database database(databasePath(), SQLite::OPEN_READONLY, 5000);
    SQLite::Statement statement(database, query);
    std::string text;
    while (statement.executeStep()) {
      if (!text.empty()) text += '\n';
      for (int i = 0; i < statement.getColumnCount(); ++i) {
        if (i != 0) text += '|';
        text += statement.isColumnNull(i) ? "NULL" : statement.getColumn(i).getString();
      }
    }
    return text;
  }
  [[nodiscard]] std::string stateOf(const std::string& blobId) const {
    return rows("SELECT state FROM varosyncBLOBSTOREMANAGER WHERE id = " + blobId);
  }
  /// A record without a blob.
  void addRecord(const std::string& pk) const {
    sql("INSERT INTO album VALUES ('" + pk + "', 'NULL')");
  }
  /// A record whose blob has a row in this state.
  void addBlob(const std::string& pk, int blobId, int state, const std::string& path = "") const {
    const std::string id = std::to_string(blobId);
    sql("INSERT INTO album VALUES ('" + pk + "', '" + id + "');" +
        "INSERT INTO varosyncBLOBSTOREMANAGER (id, localPath, state) VALUES (" + id + ", '" + path +
        "', " + std::to_string(state) + ")");
  }
  [[nodiscard]] std::string pathOf(const std::string& blobId) const {
    return home_ / "Documents/blobs/" + blobId;
  }

  // The manager.

  /// The configuration of a download; `more` wins.
  [[nodiscard]] static platform::Dictionary config(const platform::Dictionary& more = {}) {
    platform::Dictionary dictionary{{"URL", "http://127.0.0.1/"},
                                    {"ScopeName", "Scope"},
                                    {"ObjectName", "album"},
                                    {"ChunkSize", kChunk},
                                    {"ResponseType", "Binary"}};
    dictionary.addEntries(more);
    return dictionary;
  }
  /// Makes the task of a record and waits for it.
  Call create(const std::string& pk, const platform::Dictionary& configuration = config()) {
    return create({{"pk", pk}}, kDatabase, kTable, kColumn, configuration);
  }
  Call create(const platform::Dictionary& keys, const std::string& database,
              const std::string& table, const std::string& column,
              const platform::Dictionary& configuration = config()) {
    manager_->createDownloadTaskForDb(database, table, column, keys, configuration, created());
    return awaitNext();
  }
  /// Makes the task of a new record; its blob id.
  std::string newBlob(const std::string& pk, const platform::Dictionary& configuration = config()) {
    addRecord(pk);
    return create(pk, configuration).blobId.value_or("none");
  }

  void start(const std::string& blobId) {
    manager_->startDownload(blobId, block("start " + blobId));
  }
  /// Starts a download whose first request is kept back and whose row says that it runs, which its
  /// own thread writes.
  void startHeld(const std::string& blobId) {
    transport_->hold();
    start(blobId);
    awaitHeld(1);
    EXPECT_TRUE(eventually([&] { return stateOf(blobId) == "102"; }));
  }
  [[nodiscard]] platform::Dictionary pauseResult(const std::string& id) const {
    return {{"BlobID", id}, {"FilePath", pathOf(id)}, {"TotalFileSize", 10}};
  }
  /// A download that has paused after its first range.
  std::string pausedBlob(const std::string& pk) {
    std::string id = newBlob(pk);
    transport_->hold();
    start(id);
    release(1);
    awaitHeld(1);
    manager_->pauseDownload(id, block("pause"));
    EXPECT_EQ(awaitNext().result, pauseResult(id));
    transport_->releaseAll();
    return id;
  }

  /// The path of a record's file, or why there is none.
  std::string pathFor(const std::string& pk, const std::string& column = kColumn) {
    manager_->getBinaryDataFilePathForPrimaryKeys(
        {{"pk", pk}}, kDatabase, kTable, column,
        [log = block("path")](const auto& error, const auto& path) {
          EXPECT_NE(error == nullptr, path == std::nullopt);
          log(path, error, std::nullopt);
        });
    const Call call = awaitNext();
    return call.blobId.value_or(textOf(call.error));
  }

  [[nodiscard]] binary::DownloadBlock block(std::string name) const {
    return [log = log_, name = std::move(name)](const auto& blobId, const auto& error,
                                                const auto& result) {
      log->add({name, blobId, error, result});
    };
  }
  [[nodiscard]] binary::BlobCreationBlock created() const {
    return [log = log_](const auto& error, const auto& blobId) {
      log->add({"create", blobId, error, std::nullopt});
    };
  }
  [[nodiscard]] std::vector<Call> calls() const { return log_->calls(); }
  /// Waits for the next `count` calls of blocks.
  std::vector<Call> awaitCalls(std::size_t count) {
    EXPECT_TRUE(eventually([&] { return calls().size() >= awaited_ + count; }));
    std::vector<Call> next = calls();
    next.resize(awaited_ + count);
    next.erase(next.begin(), next.begin() + static_cast<std::ptrdiff_t>(awaited_));
    awaited_ += count;
    return next;
  }
  Call awaitNext() { return awaitCalls(1).front(); }
  /// What the next `count` calls say, sorted, since those of several tasks come in no order.
  std::vector<std::string> awaitSummaries(std::size_t count) {
    std::vector<std::string> summaries;
    for (const Call& call : awaitCalls(count)) summaries.push_back(call.summary());
    std::sort(summaries.begin(), summaries.end());
    return summaries;
  }

  [[nodiscard]] static std::string textOf(const platform::ErrorPtr& error) {
    if (error == nullptr) return "ok";
    std::string text = error->domain() + " " + std::to_string(error->code());
    for (const char* key : {"message", "Error message"}) {
      if (error->userInfo().contains(key)) text += " " + error->userInfo()[key].textValue();
    }
    return text;
  }

  const RangedObject object_{"0123456789"};  // of each record
  const std::shared_ptr<binary::BinaryDataManager> manager_ =
      binary::BinaryDataManager::sharedInstance();

 private:
  const std::shared_ptr<CallLog<Call>> log_ = std::make_shared<CallLog<Call>>();
  std::size_t awaited_ = 0;
};

}  // namespace varo::test
