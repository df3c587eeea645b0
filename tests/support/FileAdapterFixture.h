#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Common/VROCommonUtility.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"
#include "tests/support/Await.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace varo::test {

/// The file adapter over a scripted transport and a home directory of its own. Checks at the end
/// that no task is left and that no more blocks were called than the test awaited.
class FileAdapterFixture : public testing::Test {
 protected:
  /// One call of a block.
  struct Event {
    std::string block;
    platform::Value value;
  };

  FileAdapterFixture() {
    platform::VRONetworkUtility::setTransport(transport_);
    platform::UserDirectories::install(platform::UserDirectories::below(home_.path()));
  }
  ~FileAdapterFixture() override {
    transport_->releaseAll();
    awaitEndOfTasks();
    EXPECT_EQ(events().size(), awaited_);
    platform::VRONetworkUtility::setTransport(nullptr);
    platform::UserDirectories::install(nullptr);
    binary::setTransferPolicy(binary::TransferPolicy::kCompatible);
  }

  [[nodiscard]] binary::BinaryBlock block(std::string name) const {
    return [log = log_, name = std::move(name)](const platform::Value& value) {
      const platform::MutexLock lock(log->mutex);
      log->events.push_back({name, value});
    };
  }
  [[nodiscard]] binary::BinaryBlock onSuccess() const { return block("success"); }
  [[nodiscard]] binary::BinaryBlock onFailure() const { return block("failure"); }
  [[nodiscard]] binary::BinaryBlock onProgress() const { return block("progress"); }

  [[nodiscard]] std::vector<Event> events() const {
    const platform::MutexLock lock(log_->mutex);
    return log_->events;
  }
  /// Waits for this many calls of blocks since the beginning.
  std::vector<Event> awaitEvents(std::size_t count) {
    awaited_ = count;
    EXPECT_TRUE(eventually([&] { return events().size() >= count; }));
    return events();
  }
  /// Waits for the next call of a block.
  Event awaitNext() {
    const auto all = awaitEvents(awaited_ + 1);
    return all.size() >= awaited_ ? all[awaited_ - 1] : Event{"none", {}};
  }
  /// Waits until every task has been freed: nothing more can happen.
  void awaitEndOfTasks() const {
    EXPECT_TRUE(eventually([&] { return platform::VSTask::liveCount() == liveTasks_; }));
  }

  [[nodiscard]] static std::string json(const platform::Dictionary& dictionary) {
    return platform::VROCommonUtility::getJSONStringFromNSDictionary(dictionary, nullptr).value();
  }
  static std::string contentOf(const std::string& path) { return test::contentOf(path); }
  static void write(const std::string& path, std::string_view bytes) { writeFile(path, bytes); }

  static constexpr const char* kUrl = "http://127.0.0.1/services/storage";

  const TemporaryDirectory home_;
  const std::shared_ptr<FakeHttpTransport> transport_ = std::make_shared<FakeHttpTransport>();

 private:
  struct Log {
    platform::Mutex mutex;
    std::vector<Event> events VARO_GUARDED_BY(mutex);
  };

  static std::size_t tasksAtRest() {
    binary::BinaryFileStorageInterface::initialize();  // the manager is a task and stays
    return platform::VSTask::liveCount();
  }

  const std::size_t liveTasks_ = tasksAtRest();
  const std::shared_ptr<Log> log_ = std::make_shared<Log>();
  std::size_t awaited_ = 0;
};

}  // namespace varo::test
