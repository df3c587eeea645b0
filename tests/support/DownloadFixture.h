#pragma once

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "Binary/Binary/Utils/TransferPolicy.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "tests/support/Await.h"
#include "tests/support/Files.h"
#include "tests/support/RangedObject.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace varo::test {

/// Downloads of one object, from a server without a network, into a home of its own. When a test
/// has ended, none of its tasks is left.
class DownloadFixture : public testing::Test {
 protected:
  DownloadFixture() {
    platform::UserDirectories::install(platform::UserDirectories::below(home_.path()));
    platform::VRONetworkUtility::setTransport(transport_);
    transport_->setHandler(
        [this](const RecordedRequest& request) { return object_.answer(request); });
  }
  ~DownloadFixture() override {
    EXPECT_TRUE(eventually([this] { return platform::VSTask::liveCount() == tasksBefore_; }))
        << platform::VSTask::liveCount() - tasksBefore_ << " tasks are left";
    platform::VRONetworkUtility::setTransport(nullptr);
    platform::UserDirectories::install(nullptr);
    binary::setTransferPolicy(binary::TransferPolicy::kCompatible);
  }

  /// The input of a download of the record that `object_` stands for; `more` wins.
  static platform::Dictionary input(const platform::Dictionary& more = {}) {
    platform::Dictionary dictionary{
        {binary::kBlobId, "7"},        {binary::kURL, "http://h/"},
        {binary::kScopeName, "Scope"}, {binary::kObjectName, "Object"},
        {binary::kChunkSizeKey, 1000}, {binary::kPrimaryKeys, platform::Dictionary{{"id", 1}}}};
    dictionary.addEntries(more);
    return dictionary;
  }
  static std::shared_ptr<binary::DownloadTask> makeTask(const platform::Dictionary& more = {}) {
    auto task = binary::DownloadTask::create("7");
    task->setInputContext(input(more));
    return task;
  }
  static bool reaches(const std::shared_ptr<binary::DownloadTask>& task,
                      platform::TaskState state) {
    return eventually([&] { return task->state() == state; });
  }
  /// Puts the task's "TotalBytesDownloaded" to what its file has, as who resumes it does.
  void resumeFromFile(const std::shared_ptr<binary::DownloadTask>& task) const {
    platform::Dictionary dictionary = task->inputContext();
    dictionary.set(binary::kTotalBytesDownloaded, fileBytes().size());
    task->updateInputContext(dictionary);
    task->resumeDownload();
  }

  /// Has the n-th request, from 1, answered by `answer`, the others by the object.
  void answerNth(int n, const std::function<ScriptedAnswer(const RecordedRequest&)>& answer) {
    transport_->setHandler([this, n, answer, count = std::make_shared<std::atomic<int>>(0)](
                               const RecordedRequest& request) {
      return ++*count == n ? answer(request) : object_.answer(request);
    });
  }
  static std::int64_t errorCode(const binary::DownloadTask& task) {
    const platform::Dictionary context = task.errorContext();
    const platform::Array* errors = context[platform::kTaskErrors].array();
    return errors != nullptr && errors->size() == 1 ? (*errors)[0].error()->code() : 0;
  }
  static platform::Value errorMessage(const binary::DownloadTask& task, const char* key) {
    return task.errorContext()[key].dictionaryValue()["message"];
  }

  [[nodiscard]] std::string path() const { return home_ / "Documents/blobs/7"; }
  [[nodiscard]] std::string fileBytes() const { return contentOf(path()); }
  void writeFile(const std::string& bytes) const {
    std::filesystem::create_directories(home_ / "Documents/blobs");
    test::writeFile(path(), bytes);
  }
  [[nodiscard]] std::vector<std::string> ranges() const {
    std::vector<std::string> result;
    for (const RecordedRequest& request : transport_->requests()) {
      result.push_back(request.header("Range").value_or("none"));
    }
    return result;
  }

  const std::size_t tasksBefore_ = platform::VSTask::liveCount();
  const TemporaryDirectory home_;
  const std::shared_ptr<FakeHttpTransport> transport_ = std::make_shared<FakeHttpTransport>();
  RangedObject object_ = RangedObject::ofSize(2500);  // changed only while nothing is under way
};

}  // namespace varo::test
