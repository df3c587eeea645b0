#pragma once

#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "tests/support/OfflineFixture.h"

namespace varo::test {

/// Online uploads: the first request of an upload is answered with `template_`, the others with
/// `answer_`. Checks at the end that no block was called that the test did not await.
class OnlineUploadFixture : public OfflineFixture {
 public:
  /// Of an error or an array of errors: " ", domain, code and text of each.
  static std::string textOf(const platform::Value& error) {
    std::string text;
    if (const platform::Array* errors = error.array()) {
      for (const platform::Value& one : *errors) text += textOf(one);
    } else if (const platform::ErrorPtr one = error.error()) {
      text = " " + one->domain() + " " + std::to_string(one->code()) + " " +
             one->localizedDescription();
    }
    return text;
  }

 protected:
  /// One call of a block.
  struct Call {
    std::string taskName;
    /// "started", "completed DETAILS" or "failed" and each error's domain, code and text.
    std::string summary;
    platform::Value uploadParams, error;
  };

  OnlineUploadFixture() {
    transport_->setHandler([this](const RecordedRequest& request) {
      return request.url == kTemplateUrl ? template_ : answer_;
    });
  }
  ~OnlineUploadFixture() override {
    transport_->releaseAll();
    awaitEndOfTasks();
    EXPECT_EQ(calls().size(), awaited_);
  }

  struct Blocks {
    binary::OnBytesUploadStarted::Function started;
    binary::OnByteChunkUploadCompleted::Function chunk;
    binary::OnBytesUploadCompleted::Function completed;
    binary::OnUploadFailure::Function failed;
  };

  void upload(const platform::Dictionary& configuration,
              const std::optional<platform::Dictionary>& options = std::nullopt) {
    uploadWith(blocks(), configuration, options);
  }
  void uploadWith(const Blocks& all, const platform::Dictionary& configuration,
                  const std::optional<platform::Dictionary>& options = std::nullopt) {
    manager_->createAndStartOnlineUploadTaskFor(configuration, all.started, all.chunk,
                                                all.completed, all.failed, options);
  }
  /// Uploads and waits for the end: the summaries, with ", " between.
  std::string outcome(const platform::Dictionary& configuration,
                      const std::optional<platform::Dictionary>& options = std::nullopt) {
    const std::size_t first = awaited_;
    upload(configuration, options);
    awaitEnds(++ended_);
    std::string result;
    const std::vector<Call> all = calls();
    for (std::size_t i = first; i < all.size(); ++i) {
      result += (result.empty() ? "" : ", ") + all[i].summary;
    }
    return result;
  }
  /// Blocks that record their calls and then run `then`.
  [[nodiscard]] Blocks blocks(const std::function<void()>& then = [] {}) const {
    const auto add = [log = log_, then](Call call) {
      log->add(std::move(call));
      then();
    };
    return {
        [add](const std::string& name, const platform::Value& params) {
          add({name, "started", params, {}});
        },
        [add](const std::string& name, const platform::Value& params) {
          add({name, "chunk", params, {}});
        },
        [add](const std::string& name, const std::string& details, const platform::Value& params) {
          add({name, "completed " + details, params, {}});
        },
        [add](const std::string& name, const platform::Value& error,
              const platform::Value& params) {
          add({name, "failed" + textOf(error), params, error});
        }};
  }
  [[nodiscard]] std::vector<Call> calls() const { return log_->calls(); }
  /// Waits until this many uploads have ended since the beginning.
  void awaitEnds(std::size_t count) {
    ended_ = count;
    EXPECT_TRUE(eventually([&] {
      std::size_t ends = 0;
      for (const Call& call : calls()) ends += call.summary == "started" ? 0 : 1;
      return ends >= count;
    }));
    awaited_ = calls().size();
  }

  /// A configuration that uploads `kBytes`; `more` wins.
  static platform::Dictionary config(const platform::Dictionary& more = {}) {
    platform::Dictionary dictionary{{"URL", kTemplateUrl},
                                    {"rawBytes", platform::Data::fromBytes(kBytes)}};
    dictionary.addEntries(more);
    return dictionary;
  }
  [[nodiscard]] std::string writeFile(const std::string& name, const std::string& bytes) const {
    test::writeFile(home_ / name, bytes);
    return home_ / name;
  }
  /// Templates that have the bytes go to a store, as they are and as a form.
  static constexpr char kBinary[] = R"({"uploadMode":"binary","endpointUrl":"http://store/o"})";
  static constexpr char kForm[] =
      R"({"uploadMode":"multipart","endpointUrl":"http://store/o","requestBody":{"f":"file"}})";
  static constexpr char kTemplateUrl[] = "http://backend/template";
  static constexpr char kBytes[] = "the bytes";

  // Changed only while nothing is under way.
  ScriptedAnswer template_;
  ScriptedAnswer answer_ = answerWith(200, "stored");
  std::shared_ptr<binary::OnlineBinaryUploadManager> manager_ =
      std::make_shared<binary::OnlineBinaryUploadManager>();
  std::size_t awaited_ = 0;
  std::size_t ended_ = 0;

 private:
  const std::shared_ptr<CallLog<Call>> log_ = std::make_shared<CallLog<Call>>();
};

}  // namespace varo::test
