#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace varo::platform {
namespace {

using namespace std::string_literals;
using namespace testing;
using namespace varo::test;

mode_t modeOf(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0;
}

class StoreFileTest : public testing::Test {
 protected:
  const TemporaryDirectory directory_;
  const std::string path_ = directory_ / "file";
};

TEST_F(StoreFileTest, EveryKindOfDataArrivesWholeAndNothingElseIsLeft) {
  const std::string bytes = sampleBytes(1500000);
  writeFile(directory_ / "source", bytes);
  const TemporaryDirectory elsewhere;
  const Data cases[] = {
      Data::fromBytes(bytes),
      Data::fromBytes("head" + bytes + "tail").slice(4, bytes.size()),
      Data::fromFile(directory_ / "source").value(),
      inFile(bytes, directory_.path()),
      inFile(bytes, elsewhere.path()),
      // Another file system where there is one: the kernel neither links nor copies across.
      inFile(bytes, fileKindAt("/dev/shm") == FileKind::kDirectory ? "/dev/shm" : "/tmp"),
  };
  mode_t umask = 0077;
  for (const Data& data : cases) {
    umask = umask == 0077 ? 0022 : 0077;
    const mode_t before = ::umask(umask);
    ASSERT_TRUE(
        storeFile(path_, data, umask == 0077 ? Durability::kSynced : Durability::kNone).ok());
    ::umask(before);
    EXPECT_TRUE(contentOf(path_) == bytes);
    EXPECT_EQ(modeOf(path_), 0666U & ~umask);
    EXPECT_THAT(directory_.names(), ElementsAre("file", "source"));
    ASSERT_EQ(::unlink(path_.c_str()), 0);
  }
}

TEST_F(StoreFileTest, FilesStoredFromOneNamelessFileAreTwo) {
  const Data data = inFile("bytes", directory_.path());
  struct stat stored {};
  ASSERT_TRUE(storeFile(path_, data).ok());
  ASSERT_TRUE(storeFile(directory_ / "second", data).ok());
  ASSERT_EQ(::stat(path_.c_str(), &stored), 0);
  EXPECT_EQ(stored.st_nlink, 1U);
}

TEST_F(StoreFileTest, ReplacedFileKeepsItsPermissionsButNotItsPrivileges) {
  for (const bool takeOver : {false, true}) {
    writeFile(path_, "old");
    ASSERT_EQ(::chmod(path_.c_str(), 04755), 0);
    const Data data = takeOver ? inFile("new", directory_.path()) : Data::fromBytes("new");
    ASSERT_TRUE(storeFile(path_, data).ok());
    EXPECT_EQ(contentOf(path_), "new");
    EXPECT_EQ(modeOf(path_), 0755U);
  }
}

TEST_F(StoreFileTest, AFileThatIsMovedHasOneName) {
  const auto file = File::createNew(directory_ / "part").value();
  ASSERT_TRUE(file->writeAt(0, "new").ok());
  writeFile(path_, "old");
  ASSERT_EQ(::chmod(path_.c_str(), 0640), 0);
  EXPECT_EQ(moveNewFile(*file, path_).error()->code(), EEXIST);
  EXPECT_THAT(directory_.names(), ElementsAre("file", "part"));
  ASSERT_TRUE(moveFile(*file, path_, Durability::kSynced).ok());
  EXPECT_EQ(contentOf(path_), "new");
  EXPECT_EQ(modeOf(path_), 0640U);
  EXPECT_THAT(directory_.names(), ElementsAre("file"));
  writeFile(directory_ / "part", "of somebody");
  EXPECT_FALSE(moveFile(*file, path_).ok());
  EXPECT_EQ(contentOf(directory_ / "part"), "of somebody");
  const auto second = File::openForWriting(directory_ / "part").value();
  ASSERT_TRUE(moveNewFile(*second, directory_ / "second").ok());
  EXPECT_THAT(directory_.names(), ElementsAre("file", "second"));
}

TEST_F(StoreFileTest, FailedWriteLeavesTheOldFileAndNoTemporary) {
  const std::string big = sampleBytes(300000);
  const TemporaryDirectory elsewhere;
  const auto shrunk = File::createUnnamed(directory_.path()).value();
  const Data fromOtherFile = inFile("x" + big, elsewhere.path()).slice(1, big.size());
  const Data cases[] = {Data::fromBytes(big), fromOtherFile, Data::fromFileRegion(shrunk, 0, 100)};
  for (const bool replaces : {true, false}) {
    if (replaces) writeFile(path_, "old");
    for (const Data& data : cases) {
      const FileSizeLimit limit(100000);
      const auto stored = storeFile(path_, data);
      ASSERT_FALSE(stored.ok());
      EXPECT_EQ(stored.error()->domain(), kPosixErrorDomain);
    }
    if (replaces) {
      EXPECT_EQ(contentOf(path_), "old");
      ASSERT_EQ(::unlink(path_.c_str()), 0);
    }
    EXPECT_THAT(directory_.names(), IsEmpty());
  }
}

TEST_F(StoreFileTest, WhatIsNoRegularFileIsRefusedAndUntouched) {
  writeFile(directory_ / "target", "target");
  ASSERT_EQ(::symlink("target", (directory_ / "link").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", (directory_ / "dangling").c_str()), 0);
  ASSERT_EQ(::mkdir((directory_ / "directory").c_str(), 0700), 0);
  ASSERT_EQ(::mkfifo((directory_ / "fifo").c_str(), 0600), 0);
  const std::vector<std::string> before = directory_.names();
  const struct {
    std::string name;
    int code;
  } cases[] = {
      {"link", EEXIST},
      {"dangling", EEXIST},
      {"directory", EISDIR},
      {"fifo", EEXIST},
      {"missing/file", ENOENT},
      {"target/", ENOTDIR},
      {std::string(300, 'n'), ENAMETOOLONG},
      {"target\0hidden"s, EINVAL},
  };
  for (const auto& item : cases) {
    for (const Data& data : {Data::fromBytes("new"), inFile("new", directory_.path())}) {
      const auto stored = storeFile(directory_ / item.name, data);
      ASSERT_FALSE(stored.ok()) << item.name;
      EXPECT_EQ(stored.error()->code(), item.code) << item.name;
    }
  }
  EXPECT_EQ(directory_.names(), before);
  EXPECT_EQ(contentOf(directory_ / "target"), "target");
  EXPECT_EQ(fileKindAt(directory_ / "link"), FileKind::kOther);
}

// Two threads that find the same nameless file link it twice, and a rename onto the same file is
// nothing but "done": the second temporary name stayed behind.
TEST_F(StoreFileTest, StoresOfOneNamelessFileSideBySideLeaveNoTemporary) {
  for (int round = 0; round < 400; ++round) {
    const Data data = inFile("bytes", directory_.path());
    const auto store = [this, data] { EXPECT_TRUE(storeFile(path_, data).ok()); };
    std::thread other(store);
    store();
    other.join();
  }
  EXPECT_EQ(contentOf(path_), "bytes");
  EXPECT_THAT(directory_.names(), ElementsAre("file"));
}

TEST(FileTest, OpeningWhatIsNoRegularFileFailsAtOnce) {
  const TemporaryDirectory directory;
  ASSERT_EQ(::mkfifo((directory / "fifo").c_str(), 0600), 0);
  const struct {
    std::string path;
    int code;
  } cases[] = {
      {directory.path(), EISDIR},          {directory / "fifo", EINVAL},
      {directory / "missing", ENOENT},     {"/dev/null", EINVAL},
      {directory / "fifo\0.txt"s, EINVAL}, {"", ENOENT},
  };
  for (const auto& item : cases) {
    const auto file = File::openForReading(item.path);
    ASSERT_FALSE(file.ok()) << item.path;
    EXPECT_EQ(file.error()->code(), item.code) << item.path;
    EXPECT_EQ(file.error()->userInfo()["path"], Value(item.path));
  }
  ASSERT_TRUE(File::createNew(directory / "new").ok());
  EXPECT_EQ(modeOf(directory / "new"), 0600U);
  EXPECT_EQ(File::createNew(directory / "new").error()->code(), EEXIST);
  EXPECT_EQ(File::createUnnamed(directory / "missing").error()->code(), ENOENT);
}

/// Whether another process can lock a file in both ways that there are.
bool othersCanLock(const std::string& path) {
  const pid_t child = ::fork();
  if (child == 0) {
    // Past the library: what it knows of its own locks, the child would know as well.
    const int file = ::open(path.c_str(), O_RDWR);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    whole.l_whence = SEEK_SET;
    const bool isFree =
        ::flock(file, LOCK_EX | LOCK_NB) == 0 && ::fcntl(file, F_SETLK, &whole) == 0;
    ::_exit(isFree ? 0 : 1);
  }
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

TEST(FileTest, LockHoldsUntilItsOwnerGoesWhateverElseOpensAndClosesTheFile) {
  const TemporaryDirectory directory;
  const std::string path = directory / "file";
  auto owner = File::createNew(path).value();
  ASSERT_TRUE(owner->lock().ok());
  const auto next = File::openForWriting(path).value();
  for (int round = 0; round < 2; ++round) {
    const auto other = File::openForWriting(path).value();
    const auto refused = other->lock();
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error()->code(), EWOULDBLOCK);
    ASSERT_TRUE(File::openForReading(path).ok());
  }
  EXPECT_FALSE(othersCanLock(path));
  owner.reset();
  EXPECT_TRUE(othersCanLock(path));
  EXPECT_TRUE(next->lock().ok());
  EXPECT_FALSE(othersCanLock(path));
}

TEST(StaysInDirectoryTest, RefusesWhatLeadsOutHoweverItIsWritten) {
  const auto stays = [](std::string_view name) { return staysInDirectory("/missing", name); };
  for (const char* name :
       {"a.txt", "sub/a.txt", "a..", "100%", "50%zz", "sub%2fa.txt", "%252e%252e.txt"}) {
    EXPECT_TRUE(stays(name)) << name;
  }
  for (const std::string& name :
       {""s, "."s, ".."s, "../x"s, "/x"s, "a/../../x"s, "a/./x"s, "a//x"s, "..\\x"s, "C:\\x"s,
        "%2Fx"s, "%2e%2e%2fx"s, "%25252e%25252e%25252fx"s, "a%5c..%5cx"s, "a%00.txt"s,
        "a\0.txt"s}) {
    EXPECT_FALSE(stays(name)) << name;
  }
  // One level of encoding a byte: decoding them all must not take minutes.
  std::string nested = "%";
  while (nested.size() < 1000000) nested += "25";
  EXPECT_FALSE(stays(nested));
}

TEST(PathTest, NameThroughALinkLeavesTheDirectory) {
  const TemporaryDirectory directory;
  std::filesystem::create_directory(directory.path() + "/folder");
  std::filesystem::create_directory_symlink("/tmp", directory.path() + "/folder/link");
  EXPECT_TRUE(staysInDirectory(directory.path(), "folder/file"));
  EXPECT_TRUE(staysInDirectory(directory.path(), "missing/file"));
  EXPECT_FALSE(staysInDirectory(directory.path(), "folder/link/file"));
  EXPECT_FALSE(staysInDirectory(directory.path(), "../file"));
}

TEST(FileTest, AFileThatHasToStayAsItIsIsReadNoMoreOnceItHasChanged) {
  const TemporaryDirectory directory;
  const std::string path = directory / "file";
  const std::function<void()> changes[] = {
      [&path] {
        const auto time = std::filesystem::last_write_time(path);
        std::filesystem::last_write_time(path, time + std::chrono::hours(1));
      },
      [&path] { EXPECT_EQ(::truncate(path.c_str(), 600), 0); },
      [&path] { EXPECT_EQ(::truncate(path.c_str(), 2000), 0); },
  };
  std::string bytes(500, '\0');
  for (const auto& change : changes) {
    writeFile(path, sampleBytes(1000));
    const auto file = File::openUnchanging(path).value();
    EXPECT_EQ(file->readAt(0, bytes).value(), 500U);
    change();
    EXPECT_EQ(file->readAt(0, bytes).error()->code(), ESTALE);
  }
  const auto replaced = File::openUnchanging(path).value();
  ASSERT_EQ(::unlink(path.c_str()), 0);
  EXPECT_EQ(replaced->readAt(0, bytes).value(), 500U) << "its bytes are the same";
}

TEST(DataTest, ReadsAndSlicesAlikeFromMemoryAndFile) {
  const TemporaryDirectory directory;
  const std::string bytes = sampleBytes(600000);
  for (const Data& whole : {Data::fromBytes(bytes), inFile(bytes, directory.path())}) {
    const struct {
      std::uint64_t offset, length;
    } cases[] = {{0, UINT64_MAX}, {299999, 300001}, {5, 0},
                 {600000, 1},     {1, 262144},      {599999, UINT64_MAX}};
    for (const auto& item : cases) {
      const std::string expected =
          item.offset < bytes.size() ? bytes.substr(item.offset, item.length) : "";
      const Data part = whole.slice(item.offset, item.length);
      EXPECT_EQ(part.size(), expected.size());
      EXPECT_TRUE(part.readAll(600000).value() == expected) << item.offset;
      EXPECT_EQ(part, Data::fromBytes(expected));
      std::string pieces;
      EXPECT_TRUE(part.forEachPiece([&pieces](std::string_view piece) {
                        pieces += piece;
                        return Result<void>();
                      })
                      .ok());
      EXPECT_TRUE(pieces == expected) << item.offset;
    }
    std::string changed = bytes;
    changed[400000] ^= 1;
    EXPECT_FALSE(whole == Data::fromBytes(changed));
    EXPECT_EQ(whole.readAll(599999).error()->code(), EFBIG);
    std::string buffer(10, '\0');
    EXPECT_EQ(whole.slice(100, 50).read(45, buffer).value(), 5U);
  }
}

TEST(DataTest, FileThatShrankIsAnErrorAndItsUnlinkedBytesStayReadable) {
  const TemporaryDirectory directory;
  writeFile(directory / "file", sampleBytes(1000));
  const Data data = Data::fromFile(directory / "file").value();
  ASSERT_EQ(::unlink((directory / "file").c_str()), 0);
  EXPECT_TRUE(data.readAll(1000).value() == sampleBytes(1000));
  writeFile(directory / "other", sampleBytes(1000));
  const Data shrunk = Data::fromFile(directory / "other").value();
  ASSERT_EQ(::truncate((directory / "other").c_str(), 10), 0);
  EXPECT_EQ(shrunk.readAll(1000).error()->code(), EIO);
  EXPECT_EQ(shrunk.slice(0, 10).readAll(10).value(), sampleBytes(10));
  EXPECT_FALSE(shrunk.forEachPiece([](std::string_view) { return Result<void>(); }).ok());
}

}  // namespace
}  // namespace varo::platform
