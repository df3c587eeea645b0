#include "bench/SqliteClock.h"

#include "Platform/Foundation/Mutex.h"

#include <sqlite3.h>

#include <cstdint>

namespace varo::bench {
namespace {

using Clock = std::chrono::steady_clock;
using platform::Mutex;
using platform::MutexLock;

Mutex mutex;
std::int64_t threadsInside VARO_GUARDED_BY(mutex) = 0;
Clock::time_point firstCameIn VARO_GUARDED_BY(mutex);
Clock::duration inside VARO_GUARDED_BY(mutex){};

/// Lives as long as a call.
class Call {
 public:
  Call() {
    const MutexLock lock(mutex);
    if (threadsInside++ == 0) firstCameIn = Clock::now();
  }
  ~Call() {
    const MutexLock lock(mutex);
    if (--threadsInside == 0) inside += Clock::now() - firstCameIn;
  }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;
};

}  // namespace

std::chrono::duration<double> timeInSqlite() {
  const MutexLock lock(mutex);
  return inside;
}

}  // namespace varo::bench

// The linker's option --wrap=NAME has every other file call __wrap_NAME for NAME, and finds NAME
// itself under __real_NAME.
// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

using varo::bench::Call;

int __real_sqlite3_open_v2(const char* path, sqlite3** database, int flags, const char* vfs);
int __wrap_sqlite3_open_v2(const char* path, sqlite3** database, int flags, const char* vfs) {
  const Call call;
  return __real_sqlite3_open_v2(path, database, flags, vfs);
}

int __real_sqlite3_close_v2(sqlite3* database);
int __wrap_sqlite3_close_v2(sqlite3* database) {
  const Call call;
  return __real_sqlite3_close_v2(database);
}

int __real_sqlite3_prepare_v2(sqlite3* database, const char* sql, int size, sqlite3_stmt** made,
                              const char** rest);
int __wrap_sqlite3_prepare_v2(sqlite3* database, const char* sql, int size, sqlite3_stmt** made,
                              const char** rest) {
  const Call call;
  return __real_sqlite3_prepare_v2(database, sql, size, made, rest);
}

int __real_sqlite3_prepare_v3(sqlite3* database, const char* sql, int size, unsigned flags,
                              sqlite3_stmt** made, const char** rest);
int __wrap_sqlite3_prepare_v3(sqlite3* database, const char* sql, int size, unsigned flags,
                              sqlite3_stmt** made, const char** rest) {
  const Call call;
  return __real_sqlite3_prepare_v3(database, sql, size, flags, made, rest);
}

int __real_sqlite3_step(sqlite3_stmt* statement);
int __wrap_sqlite3_step(sqlite3_stmt* statement) {
  const Call call;
  return __real_sqlite3_step(statement);
}

int __real_sqlite3_exec(sqlite3* database, const char* sql, sqlite3_callback row, void* argument,
                        char** error);
int __wrap_sqlite3_exec(sqlite3* database, const char* sql, sqlite3_callback row, void* argument,
                        char** error) {
  const Call call;
  return __real_sqlite3_exec(database, sql, row, argument, error);
}

int __real_sqlite3_reset(sqlite3_stmt* statement);
int __wrap_sqlite3_reset(sqlite3_stmt* statement) {
  const Call call;
  return __real_sqlite3_reset(statement);
}

int __real_sqlite3_finalize(sqlite3_stmt* statement);
int __wrap_sqlite3_finalize(sqlite3_stmt* statement) {
  const Call call;
  return __real_sqlite3_finalize(statement);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)
