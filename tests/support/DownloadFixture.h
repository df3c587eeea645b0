#pragma once

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadTask.h"
#include "tests/support/OfflineFixture.h"
#include "tests/support/RangedObject.h"

#include <atomic>
#include <fstream>
#include <functional>

namespace varo::test {

/// Keeps the last state that it has heard of; the task may be nobody's.
struct Witness final : platform::TaskListener {
  void task(const std::shared_ptr<platform::VSTask>& /*task*/, platform::TaskState /*from*/,
            platform::TaskState to, const platform::Dictionary& /*context*/) override {
    last = to;
  }
  std::atomic<platform::TaskState> last{platform::TaskState::NotStarted};
};

/// Downloads of one object.
class DownloadFixture : public OfflineFixture {
 protected:
  DownloadFixture() {
    transport_->setHandler(
        [this](const RecordedRequest& request) { return object_.answer(request); });
  }
  /// A request that is under way is still answered by the object.
  ~DownloadFixture() override {
    transport_->releaseAll();
    awaitEndOfTasks();
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
  static std::shared_ptr<binary::DownloadTask> makeTask(
      const platform::Dictionary& more = {},
      const platform::Clock& clock = platform::Clock::system()) {
    auto task = binary::DownloadTask::create("7", nullptr, clock);
    task->setInputContext(input(more));
    return task;
  }
  static bool reaches(const std::shared_ptr<binary::DownloadTask>& task,
                      platform::TaskState state) {
    return eventually([&] { return task->state() == state; });
  }
  /// Runs a task, which has to come to its end, this one.
  static std::shared_ptr<binary::DownloadTask> runTo(platform::TaskState state,
                                                     const platform::Dictionary& more = {}) {
    auto task = makeTask(more);
    task->start();
    EXPECT_TRUE(reaches(task, state)) << static_cast<int>(task->state());
    task->releaseFile();  // who runs downloads does, so that the next one of the file may write
    return task;
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
  void answerNth(int n, const ScriptedAnswer& answer) {
    answerNth(n, [answer](const RecordedRequest&) { return answer; });
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
  /// What was asked for since there were `before` requests, with " " between.
  [[nodiscard]] std::string rangesSince(std::size_t before) const {
    const std::vector<std::string> all = ranges();
    std::string text;
    for (std::size_t i = before; i < all.size(); ++i) text += (text.empty() ? "" : " ") + all[i];
    return text;
  }

  RangedObject object_ = RangedObject::ofSize(2500);  // changed only while nothing is under way
};

}  // namespace varo::test
