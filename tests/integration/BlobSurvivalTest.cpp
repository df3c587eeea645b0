// Downloads of a process that is killed or interrupted at any moment.

#include "Sandbox/ExampleDatabase.h"
#include "Sandbox/GeneratedBytes.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SandboxFixture.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <fmt/format.h>

#include <random>
#include <thread>

namespace varo::sandbox {
namespace {

using namespace test;

class BlobSurvivalTest : public SandboxTest {
 protected:
  struct Row {
    int state = 0;
    std::string localPath;
  };

  void SetUp() override {
    SandboxTest::SetUp();
    const auto failed = ExampleDatabase::make(databasePath(), *server_);
    ASSERT_FALSE(failed.has_value()) << failed->message;
    std::ofstream(home_ / "config.json") << fmt::format(
        R"({{"URL":"{}","ScopeName":"{}","ObjectName":"{}","ChunkSize":{}}})", server_->blobUrl(),
        ExampleDatabase::kScope, ExampleDatabase::kTable, kChunk);
    expected_.resize(employee().photo.size);
    ASSERT_GT(GeneratedBytes(employee().photo.seed, employee().photo.size).readAt(0, expected_), 0);
  }

  /// His photo comes in more than a hundred ranges.
  static const ExampleEmployee& employee() { return ExampleDatabase::employees()[1]; }

  [[nodiscard]] std::string databasePath() const {
    return home_ / "Library/WEBSQLDIRECTORY/people.db";
  }
  [[nodiscard]] ChildProcess download() const {
    return ChildProcess(
        {.program = VARO_PROGRAM,
         .arguments = {"--json", "--home", home_.path(), "blob", "download", "--db", "people.db",
                       "--table", ExampleDatabase::kTable, "--column",
                       ExampleDatabase::kPhotoColumn, "--key", fmt::format("id={}", employee().id),
                       "--config", home_ / "config.json"},
         .environment = {},
         .directory = home_.path()});
  }
  /// Of the blob; state 0 while there is none.
  [[nodiscard]] Row row() const {
    const SQLite::Database database(databasePath(), SQLite::OPEN_READWRITE, 5000);
    SQLite::Statement statement(
        database, fmt::format("SELECT state, localPath FROM {}", ExampleDatabase::kBlobTable));
    if (!statement.executeStep()) return {};
    return {statement.getColumn(0).getInt(), statement.getColumn(1).getString()};
  }
  void forgetDownload() const {
    SQLite::Database(databasePath(), SQLite::OPEN_READWRITE, 5000)
        .exec(
            fmt::format("UPDATE {} SET state = 101, localPath = ''", ExampleDatabase::kBlobTable));
  }
  [[nodiscard]] std::string fileBytes() const {
    std::string bytes;
    std::error_code ignored;
    for (const auto& entry :
         std::filesystem::directory_iterator(home_ / "Documents/blobs", ignored)) {
      bytes = test::contentOf(entry.path());
    }
    return bytes;
  }

  static constexpr int kChunk = 20'000;
  const TemporaryDirectory home_;
  std::string expected_;
};

TEST_F(BlobSurvivalTest, KillsAndInterruptsAtAnyMomentLeaveWhatTheNextDownloadCompletes) {
  constexpr int kRounds = 60;
  const auto began = std::chrono::steady_clock::now();
  ASSERT_EQ(download().wait(), 0);
  const auto whole = std::chrono::duration_cast<std::chrono::microseconds>(
      std::chrono::steady_clock::now() - began);
  forgetDownload();
  std::mt19937 random(3);
  std::uniform_int_distribution<std::chrono::microseconds::rep> moment(0, whole.count());
  int inTheMiddle = 0;
  std::size_t kept = 0;  // bytes that the next download has to go on from
  for (int round = 0; round < kRounds; ++round) {
    {
      ChildProcess child = download();
      std::this_thread::sleep_for(std::chrono::microseconds(moment(random)));
      child.signal(round % 3 == 0 ? SIGINT : SIGKILL);
      (void)child.wait();
    }
    const Row now = row();
    const std::string bytes = fileBytes();
    ASSERT_TRUE(expected_.starts_with(bytes)) << "after round " << round;
    ASSERT_GE(bytes.size(), kept) << "round " << round << " started over";
    kept = now.state == 50 || now.localPath.empty() ? 0 : bytes.size();
    if (now.state == 50) {
      ASSERT_EQ(bytes.size(), expected_.size()) << "after round " << round;
      forgetDownload();
    }
    inTheMiddle += now.state != 50 && !bytes.empty() ? 1 : 0;
  }
  EXPECT_GE(inTheMiddle, kRounds / 10) << "the moments were not spread";

  ChildProcess last = download();
  EXPECT_EQ(last.wait(), 0) << last.errors();
  EXPECT_EQ(row().state, 50);
  EXPECT_TRUE(fileBytes() == expected_);
}

}  // namespace
}  // namespace varo::sandbox
