#include "Platform/Database/DatabaseConnections.h"

#include "Platform/Database/DatabaseTuning.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <exception>
#include <functional>
#include <iterator>
#include <utility>

namespace varo::platform {
namespace {

/// What a timer has the pool do. Made before the timer starts: when it is due there may be no
/// memory, and nobody would try again.
class TimedWork final : public ThreadPool::Work {
 public:
  using Do = std::function<void(TimerQueue::Reason)>;
  explicit TimedWork(Do work) : work_(std::move(work)) {}

  void setReason(TimerQueue::Reason reason) noexcept { reason_ = reason; }
  void run() override {
    const Do once = std::move(work_);  // what it holds is not for the timer's thread to let go
    once(reason_);
  }

 private:
  Do work_;
  /// Written before the pool gets this, which reads it.
  TimerQueue::Reason reason_ = TimerQueue::Reason::kDue;
};

/// Throws as `TimerQueue::after`. What the pool does may write to the disk, which a timer must not
/// wait for.
void onPoolAfter(std::chrono::milliseconds delay, TimedWork::Do work) {
  const auto timed = std::make_shared<TimedWork>(std::move(work));
  Runtime::shared().timers().after(delay, [timed](TimerQueue::Reason reason) {
    timed->setReason(reason);
    Runtime::shared().pool().postOrRun(std::shared_ptr<ThreadPool::Work>(timed));
  });
}

}  // namespace

DatabaseConnections& DatabaseConnections::shared() {
  // Never destroyed: the runtime's threads may use it until they are joined at exit.
  static DatabaseConnections& instance = *new DatabaseConnections();
  return instance;
}

Result<void> DatabaseConnections::open(const std::string& path) {
  Result<void> opened = connectionOf(path)->open();
  closeLater();
  return opened;
}

Result<StatementOutcome> DatabaseConnections::read(const std::string& path,
                                                   const VROPreparedStatement& statement,
                                                   std::chrono::milliseconds busyTimeout) {
  Result<StatementOutcome> outcome = connectionOf(path)->read(statement, busyTimeout);
  closeLater();
  return outcome;
}

Result<StatementOutcome> DatabaseConnections::write(const std::string& path,
                                                    const VROPreparedStatement& statement,
                                                    std::chrono::milliseconds busyTimeout) {
  Result<StatementOutcome> outcome = connectionOf(path)->write(statement, busyTimeout);
  closeLater();
  return outcome;
}

void DatabaseConnections::writeLater(const std::string& path, VROPreparedStatement statement,
                                     std::chrono::milliseconds busyTimeout,
                                     DatabaseConnection::Told told) {
  const std::shared_ptr<DatabaseConnection> connection = connectionOf(path);
  if (connection->writeLater(std::move(statement), busyTimeout, std::move(told))) {
    flushLater(connection);
  }
  closeLater();
}

std::vector<GroupOutcome> DatabaseConnections::writeGroups(
    const std::string& path, const std::vector<StatementGroup>& groups,
    std::chrono::milliseconds busyTimeout) {
  std::vector<GroupOutcome> outcomes = connectionOf(path)->writeGroups(groups, busyTimeout);
  closeLater();
  return outcomes;
}

std::shared_ptr<DatabaseConnection> DatabaseConnections::connectionOf(const std::string& path) {
  std::vector<Entry> dropped;  // closed after the lock is gone
  const MutexLock lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.path == path; });
  if (found != entries_.end()) {
    // The latest used to the front, so that the one dropped below is the one unused for longest.
    std::rotate(entries_.begin(), found, std::next(found));
    return entries_.front().connection;
  }
  // Not one that is in use, be it by a timer: what waits in it must come before what the next
  // connection to its database writes.
  while (entries_.size() >= tuning::kMaxConnections) {
    const auto unused = std::find_if(entries_.rbegin(), entries_.rend(), [](const Entry& entry) {
      return entry.connection.use_count() == 1;
    });
    if (unused == entries_.rend()) break;
    dropped.push_back(*unused);
    entries_.erase(std::prev(unused.base()));
  }
  auto connection = std::make_shared<DatabaseConnection>(path);
  entries_.insert(entries_.begin(), Entry{path, connection});
  return connection;
}

void DatabaseConnections::flushLater(const std::shared_ptr<DatabaseConnection>& connection) {
  try {
    onPoolAfter(tuning::kPatience, [this, connection](TimerQueue::Reason reason) {
      connection->flush(reason == TimerQueue::Reason::kShutDown
                            ? DatabaseConnection::Clock::time_point::max()
                            : DatabaseConnection::Clock::now() - tuning::kPatience);
      closeLater();
    });
  } catch (const std::exception&) {
    // No thread or no memory to be had, and maybe no other write that comes.
    connection->flush(DatabaseConnection::Clock::time_point::max());
  }
}

void DatabaseConnections::closeLater() {
  {
    const MutexLock lock(mutex_);
    // One timer for all connections; it starts the next one while any is open.
    if (std::exchange(timerRuns_, true)) return;
  }
  try {
    onPoolAfter(tuning::kIdleConnection, [this](TimerQueue::Reason reason) {
      closeUnusedSince(reason == TimerQueue::Reason::kShutDown
                           ? DatabaseConnection::Clock::time_point::max()
                           : DatabaseConnection::Clock::now() - tuning::kIdleConnection);
    });
  } catch (const std::exception&) {
    // No thread or no memory to be had, which is no fault of the statement: the connections stay
    // open until the next statement's timer.
    const MutexLock lock(mutex_);
    timerRuns_ = false;
  }
}

void DatabaseConnections::closeUnusedSince(DatabaseConnection::Clock::time_point time) {
  std::vector<Entry> entries;
  {
    const MutexLock lock(mutex_);
    timerRuns_ = false;  // first, so that whoever uses a connection from now on starts the next one
    // Copied, since closing waits for a statement under way and must not hold up other databases.
    entries = entries_;
  }
  bool allClosed = true;
  for (const Entry& entry : entries) {
    allClosed = entry.connection->closeIfUnusedSince(time) && allClosed;
  }
  if (!allClosed) closeLater();
}

}  // namespace varo::platform
