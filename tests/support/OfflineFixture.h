#pragma once

#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"
#include "tests/support/Await.h"
#include "tests/support/CallLog.h"
#include "tests/support/FakeHttpTransport.h"
#include "tests/support/Files.h"
#include "tests/support/TemporaryDirectory.h"

#include <memory>
#include <string>
#include <vector>

namespace varo::test {

/// A scripted transport and a home directory of its own. Checks at the end that no task is left.
class OfflineFixture : public testing::Test {
 protected:
  explicit OfflineFixture(std::size_t tasksBefore = platform::VSTask::liveCount())
      : tasksBefore_(tasksBefore) {
    platform::VRONetworkUtility::setTransport(transport_);
    platform::UserDirectories::install(platform::UserDirectories::below(home_.path()));
  }
  ~OfflineFixture() override {
    transport_->releaseAll();
    awaitEndOfTasks();
    platform::VRONetworkUtility::setTransport(nullptr);
    platform::UserDirectories::install(nullptr);
    binary::setTransferPolicy(binary::TransferPolicy::kCompatible);
  }

  /// Waits until every task has been freed: nothing more can happen.
  void awaitEndOfTasks() const {
    EXPECT_TRUE(eventually([&] { return platform::VSTask::liveCount() <= tasksBefore_; }));
  }
  void awaitHeld(std::size_t count) const {
    EXPECT_TRUE(eventually([&] { return transport_->heldCount() == count; }));
  }
  /// Completes the oldest `count` requests that are kept back, on this thread.
  void release(int count) const {
    for (; count > 0; --count) {
      EXPECT_TRUE(eventually([&] { return transport_->heldCount() > 0; }));
      transport_->release();
    }
  }
  /// The ranges that were asked for.
  [[nodiscard]] std::vector<std::string> ranges() const {
    std::vector<std::string> all;
    for (const RecordedRequest& request : transport_->requests()) {
      all.push_back(request.header("Range").value_or("none"));
    }
    return all;
  }

  const std::size_t tasksBefore_;
  const TemporaryDirectory home_;
  const std::shared_ptr<FakeHttpTransport> transport_ = std::make_shared<FakeHttpTransport>();
};

}  // namespace varo::test
