#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Client/ClientCore.h"
#include "Client/Failures.h"
#include "Client/Operation.h"
#include "Client/Running.h"
#include "Platform/Foundation/Value.h"
#include "varo/outcome.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace varo::detail {

/// What one operation of a `FileClient` does.
template <typename T>
struct FileCall {
  /// What the call is about, for messages: 'upload of "photo.jpg"'.
  std::string about;
  /// Sends the request. Its headers are given, `options` go with it, `callback` hears of the end.
  /// A failure says that it was not sent.
  std::function<Outcome<void>(const platform::Dictionary& headers,
                              const std::shared_ptr<binary::OperationSettings>& settings,
                              const std::shared_ptr<binary::BinaryCallback>& callback)>
      send;
  /// The outcome of what the service answered.
  std::function<Outcome<T>(const platform::Dictionary& result)> read;
  /// Of a progress report: bytes done and in all.
  std::function<void(RunningBase& running, const platform::Dictionary& report)> progress = {};
  /// Completes a failure, and calls `done` with it, once; it may take requests of its own.
  std::function<void(Failure failure, std::function<void(Failure)> done)> complete = {};
  bool canPause = false;
};

/// A call, on behalf of a handle.
template <typename T>
class FileOperation final : public Operation {
 public:
  FileOperation(std::shared_ptr<ClientCore> core, FileCall<T> call,
                std::shared_ptr<Running<T>> running)
      : Operation(core->places()),
        core_(std::move(core)),
        call_(std::move(call)),
        running_(std::move(running)) {}

  /// Starts the call, and gives what its handle needs.
  [[nodiscard]] static std::shared_ptr<Running<T>> begin(std::shared_ptr<ClientCore> core,
                                                         FileCall<T> call) {
    auto running = std::make_shared<Running<T>>();
    const auto operation =
        std::make_shared<FileOperation>(std::move(core), std::move(call), running);
    running->drivenBy(operation);
    operation->Operation::begin();
    return running;
  }

 private:
  void launch(std::uint64_t run,
              const std::shared_ptr<platform::Cancellation>& cancellation) override {
    Outcome<platform::Dictionary> headers = core_->headers();
    if (!headers) return failed(run, std::move(headers).error());
    const auto self = std::static_pointer_cast<FileOperation>(shared_from_this());
    const auto callback = std::make_shared<binary::BinaryCallback>();
    callback->setSuccessCallback(
        [self, run](const platform::Value& result) { self->succeeded(run, result); });
    callback->setFailureCallback([self, run](const platform::Value& failure) {
      self->failed(run, failureFrom(failure, self->call_.about));
    });
    if (call_.progress != nullptr) {
      callback->setProgressCallback([self](const platform::Value& report) {
        self->call_.progress(*self->running_, report.dictionaryValue());
      });
    }
    const auto settings = core_->settings();
    settings->cancellation = cancellation->token();
    if (Outcome<void> sent = call_.send(*headers, settings, callback); !sent) {
      failed(run, std::move(sent).error());
    }
  }

  [[nodiscard]] bool canPause() const override { return call_.canPause; }
  void finish(const platform::Value& result) override {
    running_->end(call_.read(result.dictionaryValue()));
  }
  void finish(Failure failure) override {
    if (call_.complete == nullptr) return running_->end(std::move(failure));
    call_.complete(std::move(failure),
                   [running = running_](Failure whole) { running->end(std::move(whole)); });
  }
  [[nodiscard]] RunningBase& running() override { return *running_; }

  const std::shared_ptr<ClientCore> core_;
  const FileCall<T> call_;
  const std::shared_ptr<Running<T>> running_;
};

}  // namespace varo::detail
