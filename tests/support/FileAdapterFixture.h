#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Platform/Common/VROCommonUtility.h"
#include "tests/support/OfflineFixture.h"

namespace varo::test {

/// The file adapter. Checks at the end that no more blocks were called than the test awaited.
class FileAdapterFixture : public OfflineFixture {
 protected:
  /// One call of a block.
  struct Event {
    std::string block;
    platform::Value value;
  };

  FileAdapterFixture() : OfflineFixture(tasksAtRest()) {}
  ~FileAdapterFixture() override {
    transport_->releaseAll();
    awaitEndOfTasks();
    EXPECT_EQ(events().size(), awaited_);
  }

  [[nodiscard]] binary::BinaryBlock block(std::string name) const {
    return [log = log_, name = std::move(name)](const platform::Value& value) {
      log->add({name, value});
    };
  }
  [[nodiscard]] binary::BinaryBlock onSuccess() const { return block("success"); }
  [[nodiscard]] binary::BinaryBlock onFailure() const { return block("failure"); }
  [[nodiscard]] binary::BinaryBlock onProgress() const { return block("progress"); }

  /// All three, as a task takes them.
  [[nodiscard]] platform::Value callback() const {
    return binary::BinaryCallbackUtils::getLocalBinaryCallbackWithOnSuccess(
        onSuccess(), onFailure(), onProgress());
  }

  [[nodiscard]] std::vector<Event> events() const { return log_->calls(); }
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

  [[nodiscard]] static std::string json(const platform::Dictionary& dictionary) {
    return platform::VROCommonUtility::getJSONStringFromNSDictionary(dictionary, nullptr).value();
  }

  /// What a service answers that has every file, in store at `where`, and accepts each delete.
  [[nodiscard]] static ScriptedAnswer serviceAnswer(const RecordedRequest& request,
                                                    const platform::Dictionary& where = {
                                                        {"domain", "#middlewaredomain"},
                                                        {"relativepath", "/bytes"}}) {
    if (request.url.find("/objects/File") == std::string::npos) {
      return answerWith(200, R"({"poll_status":"false"})");  // a chunk, a status, or bytes
    }
    platform::Dictionary uploadTemplate{{"uploadMode", "binary"}, {"method", "put"}};
    uploadTemplate.addEntries(where);
    const platform::Dictionary record{{"file_name", "a"}, {"download_template", json(where)}};
    platform::Dictionary answer{{"opstatus", 0}, {"access_token", kMarker}};
    using enum platform::HttpMethod;
    if (request.method == kPost) answer.set("upload_template", json(uploadTemplate));
    if (request.method == kGet) answer.set("records", platform::Array{record});
    if (request.method == kDelete)
      answer.addEntries({{"httpStatusCode", 202}, {"poll_api", "/jobs"}});
    return answerWith(200, json(answer));
  }

  /// Part of each secret.
  static constexpr const char* kMarker = "m4rk3r";
  static constexpr const char* kUrl = "http://127.0.0.1/services/storage";

 private:
  static std::size_t tasksAtRest() {
    binary::BinaryFileStorageInterface::initialize();  // the manager is a task and stays
    return platform::VSTask::liveCount();
  }

  const std::shared_ptr<CallLog<Event>> log_ = std::make_shared<CallLog<Event>>();
  std::size_t awaited_ = 0;
};

}  // namespace varo::test
