// What the file system does to a download: full disks, files that are taken away, files of others.

#include "Binary/Binary/DownloadTask/FileClaim.h"
#include "tests/support/DownloadFixture.h"

#include <future>
#include <sys/stat.h>
#include <utility>

namespace varo::binary {
namespace {

using namespace platform;
using namespace test;
using testing::HasSubstr;

using DownloadFileTest = test::DownloadFixture;

TEST_F(DownloadFileTest, FailuresOfTheFileSystemEndTheDownloadAndNameThePath) {
  const std::string folder = home_ / "Documents/blobs";
  const struct {
    std::string name;
    std::function<void()> prepare;
    std::string message, cause;
  } cases[] = {
      {"directory", [&] { std::filesystem::create_directories(path()); }, "", "Is a directory"},
      {"FIFO", [&] { ::mkfifo(path().c_str(), 0600); }, "", "Invalid argument"},
      {"link", [&] { std::filesystem::create_symlink(home_ / "target", path()); }, "",
       "Too many levels of symbolic links"},
      {"no folder", [&] { std::filesystem::remove_all(folder), test::writeFile(folder, "a file"); },
       "FileDoesn't exist at path.", "Not a directory"},
      // Nobody may make a folder there, not even who may do everything.
      {"folder cannot be made",
       [&] {
         std::filesystem::remove_all(home_ / "Documents");
         std::filesystem::create_directory_symlink("/sys/kernel", home_ / "Documents");
       },
       "FileDoesn't exist at path.", "blobs: Operation not permitted"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    std::ofstream(home_ / "target") << "untouched";
    c.prepare();
    const auto task = runTo(TaskState::Errored);
    const Dictionary info = task->errorContext()[kPersistenceError].dictionaryValue();
    EXPECT_EQ(info["path"], Value(path()));
    EXPECT_THAT(info["NSLocalizedDescription"].textValue(), HasSubstr(c.cause));
    if (!c.message.empty()) {
      EXPECT_EQ(info["message"], Value(c.message));
    }
    EXPECT_EQ(std::filesystem::file_size(home_ / "target"), 9U);
  }
  std::filesystem::remove_all(folder);
}

TEST_F(DownloadFileTest, BlobIdsThatLeaveTheFolderAreRefused) {
  for (const char* blobId : {"../7", "/etc/7", "..", "a/../../7", "%2e%2e/7"}) {
    const auto task = runTo(TaskState::Errored, {{kBlobId, blobId}});
    EXPECT_EQ(errorMessage(*task, kPersistenceError), Value("FileDoesn't exist at path."));
    EXPECT_TRUE(task->outputContext()[kFilePath].textValue().empty()) << blobId;
  }
}

TEST_F(DownloadFileTest, FullDiskKeepsWhatWasWrittenAndTheDownloadGoesOnLater) {
  object_ = RangedObject::ofSize(300'000);
  const auto task = makeTask({{kChunkSizeKey, 50'000}});
  {
    const test::FileSizeLimit limit(170'000);
    task->start();
    ASSERT_TRUE(reaches(task, TaskState::Errored));
  }
  EXPECT_THAT(errorMessage(*task, kPersistenceError).textValue(),
              HasSubstr("Writing " + path() + ": File too large"));
  EXPECT_EQ(fileBytes(), object_.bytes.substr(0, 150'000));

  runTo(TaskState::Ended, {{kChunkSizeKey, 50'000}, {kTotalBytesDownloaded, 150'000}});
  EXPECT_EQ(fileBytes(), object_.bytes);
}

TEST_F(DownloadFileTest, FileThatIsTakenAwayOrChangedMeanwhileIsNeverCompleted) {
  for (const auto& [name, interfere] : std::vector<std::pair<std::string, std::function<void()>>>{
           {"removed", [this] { std::filesystem::remove(path()); }},
           {"folder removed", [this] { std::filesystem::remove_all(home_ / "Documents/blobs"); }},
           {"cut", [this] { std::filesystem::resize_file(path(), 10); }},
           {"replaced", [this] {
              std::filesystem::rename(path(), path() + ".old");
              writeFile(std::string(2500, 'o'));  // as long as the object
            }}}) {
    SCOPED_TRACE(name);
    // Told by its range: the run before may have sent another request after its file had failed.
    transport_->setHandler([this, interfere = interfere](const RecordedRequest& request) {
      if (request.header("Range").value_or("").starts_with("bytes=1000-")) {
        EXPECT_TRUE(eventually([this] { return fileBytes().size() == 1000; }));
        interfere();
      }
      return object_.answer(request);
    });
    const auto task = runTo(TaskState::Errored);
    EXPECT_EQ(task->errorContext()[kPersistenceError].dictionaryValue()["path"], Value(path()));
  }
}

TEST_F(DownloadFileTest, CompleteFileThatIsCutBeforeTheEndIsToldIsNoSuccess) {
  std::promise<void> answered;  // the network half has ended
  const auto cut =
      std::make_shared<OnChunkDownloadCompleted>([&](const auto&, auto, auto, const auto&) {
        answered.get_future().wait();
        std::filesystem::resize_file(path(), 10);
      });
  transport_->hold();
  const auto task = makeTask({{kChunkSizeKey, 2500}, {kOnChunkDownloadCompleted, Value(cut)}});
  task->start();
  release(1);
  answered.set_value();
  ASSERT_TRUE(reaches(task, TaskState::Errored));
  EXPECT_EQ(errorMessage(*task, kPersistenceError), Value("Integrity check failed"));
}

TEST_F(DownloadFileTest, ReleasedFileIsNotWrittenWhateverStillArrives) {
  object_ = RangedObject::ofSize(10'000);
  transport_->hold();
  const auto task = makeTask();
  task->start();
  release(1);
  ASSERT_TRUE(eventually([this] { return fileBytes().size() == 1000; }));
  task->releaseFile();
  transport_->releaseAll();
  // At most four chunks wait, so some of those that came later have had their turn by now.
  ASSERT_TRUE(eventually([this] { return transport_->requestCount() == 10; }));
  auto behindThem = FileClaim::acquire(home_ / "behind", [] {}).claim;
  task->releaseFile(std::move(behindThem));
  ASSERT_TRUE(
      eventually([this] { return FileClaim::acquire(home_ / "behind", [] {}).claim != nullptr; }));
  EXPECT_EQ(fileBytes().size(), 1000U);
  task->stop();
}

TEST_F(DownloadFileTest, DownloadThatCannotStoreItsBytesFetchesNoMore) {
  std::filesystem::create_directories(path());
  transport_->hold();
  const auto task = makeTask();
  task->start();
  release(1);
  ASSERT_TRUE(reaches(task, TaskState::Errored));
  EXPECT_TRUE(eventually([this] { return transport_->cancelled().size() == 1; }));
}

TEST_F(DownloadFileTest, ResumeOfAFileThatHasBecomeCompleteAsksForNothing) {
  transport_->hold();
  const auto task = makeTask();
  task->start();
  release(1);
  awaitHeld(1);
  task->pauseDownload();
  ASSERT_TRUE(reaches(task, TaskState::Paused));
  writeFile(object_.bytes);
  resumeFromFile(task);
  EXPECT_TRUE(reaches(task, TaskState::Ended));
  EXPECT_EQ(transport_->requestCount(), 2U);
}

TEST_F(DownloadFileTest, EndWithoutAChunkIsNoneWhileTheFileCannotBeBroughtToTheDisk) {
  const auto first = makeTask();
  first->start();
  ASSERT_TRUE(reaches(first, TaskState::Ended));  // and still has the file
  object_.statesSize = false;
  for (int round = 0; round < 50; ++round) {
    const auto second = makeTask({{kTotalBytesDownloaded, 2500}});
    second->start();
    ASSERT_TRUE(reaches(second, TaskState::Errored)) << round;
    EXPECT_THAT(errorMessage(*second, kPersistenceError).textValue(),
                HasSubstr("Another download"));
  }
}

}  // namespace
}  // namespace varo::binary
