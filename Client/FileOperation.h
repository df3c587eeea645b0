#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Callbacks/BinaryCallback.h"
#include "Client/ClientCore.h"
#include "Client/Failures.h"
#include "Client/MemoryNeeds.h"
#include "Client/Observed.h"
#include "Client/Operation.h"
#include "Client/Running.h"
#include "Platform/Foundation/Cancellation.h"
#include "Platform/Foundation/Value.h"
#include "varo/events.h"
#include "varo/outcome.h"
#include "varo/units.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace varo::detail {

/// What one run of a call sends with, and the handle that it is for.
struct FileRun {
  std::shared_ptr<HeldCredentials> credentials;
  /// With what is shown of them.
  platform::Dictionary headers;
  std::shared_ptr<binary::OperationSettings> settings;
  /// Hears of the end.
  std::shared_ptr<binary::BinaryCallback> callback;
  std::shared_ptr<platform::Cancellation> cancellation;
  std::shared_ptr<RunningBase> handle;
};

/// What one operation of a `FileClient` does, over all its runs. Its functions are called on
/// threads of the pool, one run after the other, but for `stop`.
template <typename T>
class FileCall : public Observed {
 public:
  FileCall() = default;
  FileCall(const FileCall&) = delete;
  FileCall& operator=(const FileCall&) = delete;
  virtual ~FileCall() = default;

  /// What the call is about, for messages: 'upload of "photo.jpg"'.
  [[nodiscard]] virtual const std::string& about() const = 0;
  [[nodiscard]] virtual OperationKind kind() const = 0;
  /// Bytes that a run needs at most.
  [[nodiscard]] virtual std::uint64_t memory() const { return memory::kRequest; }
  /// See `Operation`.
  [[nodiscard]] virtual std::optional<Bytes> perSecond() const { return std::nullopt; }
  /// Sends the requests of a run. A failure says that nothing was sent.
  [[nodiscard]] virtual Outcome<void> send(const FileRun& run) = 0;
  /// The outcome of what the service answered.
  [[nodiscard]] virtual Outcome<T> read(const platform::Dictionary& result) = 0;
  /// Of a progress report of the classes below.
  virtual void progress(RunningBase& /*handle*/, const platform::Dictionary& /*report*/) {}
  /// The failure of a run, as the call itself knows it better; `told` is where it comes from. May
  /// wait.
  [[nodiscard]] virtual Failure explain(Failure failure, const platform::Value& /*told*/) {
    return failure;
  }
  /// How long after this failure another run follows; none: it was the last.
  [[nodiscard]] virtual std::optional<std::chrono::milliseconds> runsAgainAfter(
      const Failure& /*failure*/) {
    return std::nullopt;
  }
  /// See `Operation::canGoOn`.
  [[nodiscard]] virtual bool canGoOn() const { return false; }
  /// Calls `done` with the outcome of a call that has failed, once; may take requests of its own.
  virtual void complete(Failure failure, const std::function<void(Outcome<T>)>& done) {
    done(std::move(failure));
  }
  [[nodiscard]] virtual bool canPause() const { return false; }
  /// Ends the run, for a pause or `forGood`, if not now then as soon as that does no harm.
  /// Thread-safe.
  virtual void stop(const std::shared_ptr<platform::Cancellation>& run, bool /*forGood*/) {
    run->cancel();
  }
};

/// A call that is one request of the service.
template <typename T>
class OneRequest final : public FileCall<T> {
 public:
  using Send = std::function<Outcome<void>(const FileRun& run)>;
  using Read = std::function<Outcome<T>(const platform::Dictionary& result)>;

  OneRequest(OperationKind kind, std::string about, Send send, Read read, bool canPause = false)
      : kind_(kind),
        about_(std::move(about)),
        send_(std::move(send)),
        read_(std::move(read)),
        canPause_(canPause) {}

  [[nodiscard]] const std::string& about() const override { return about_; }
  [[nodiscard]] OperationKind kind() const override { return kind_; }
  [[nodiscard]] Outcome<void> send(const FileRun& run) override { return send_(run); }
  [[nodiscard]] Outcome<T> read(const platform::Dictionary& result) override {
    return read_(result);
  }
  [[nodiscard]] bool canPause() const override { return canPause_; }

 private:
  const OperationKind kind_;
  const std::string about_;
  const Send send_;
  const Read read_;
  const bool canPause_;
};

/// A call, on behalf of a handle.
template <typename T>
class FileOperation final : public Operation {
 public:
  using CallPtr = std::shared_ptr<FileCall<T>>;

  FileOperation(std::shared_ptr<ClientCore> core, CallPtr call, std::shared_ptr<Running<T>> running)
      : Operation(*core, call->kind(), call->memory(), call->perSecond()),
        core_(std::move(core)),
        call_(std::move(call)),
        running_(std::move(running)) {}

  /// Starts the call, and gives what its handle needs.
  [[nodiscard]] static std::shared_ptr<Running<T>> begin(std::shared_ptr<ClientCore> core,
                                                         const CallPtr& call) {
    auto running = std::make_shared<Running<T>>();
    const auto operation = std::make_shared<FileOperation>(std::move(core), call, running);
    call->observedBy(operation->observer());
    operation->beginFor(*running, call->about());
    return running;
  }

 private:
  void launch(std::uint64_t run,
              const std::shared_ptr<platform::Cancellation>& cancellation) override {
    const auto settings = core_->settings();
    const auto credentials = core_->holdCredentials(cancellation->token());
    Outcome<platform::Dictionary> headers = core_->headers(*settings, credentials);
    if (!headers) return failed(run, std::move(headers).error());
    const auto self = std::static_pointer_cast<FileOperation>(shared_from_this());
    const auto callback = std::make_shared<binary::BinaryCallback>();
    callback->setSuccessCallback(
        [self, run](const platform::Value& result) { self->succeeded(run, result); });
    callback->setFailureCallback([self, run](const platform::Value& failure) {
      self->failed(run, self->call_->explain(failureFrom(failure, self->call_->about()), failure));
    });
    callback->setProgressCallback([self](const platform::Value& report) {
      self->call_->progress(*self->running_, report.dictionaryValue());
    });
    settings->cancellation = cancellation->token();
    direct(run, *settings);
    const FileRun sent{credentials, *std::move(headers), settings,
                       callback,    cancellation,        running_};
    if (Outcome<void> refused = call_->send(sent); !refused) {
      failed(run, std::move(refused).error());
    }
  }

  [[nodiscard]] bool canPause() const override { return call_->canPause(); }
  void stop(const std::shared_ptr<platform::Cancellation>& run, bool forGood) override {
    call_->stop(run, forGood);
  }
  [[nodiscard]] std::optional<std::chrono::milliseconds> runsAgainAfter(
      const Failure& failure) override {
    return call_->runsAgainAfter(failure);
  }
  [[nodiscard]] bool canGoOn() const override { return call_->canGoOn(); }
  void finish(const platform::Value& result) override {
    running_->end(call_->read(result.dictionaryValue()));
  }
  void finish(Failure failure) override {
    call_->complete(std::move(failure),
                    [running = running_](Outcome<T> outcome) { running->end(std::move(outcome)); });
  }
  [[nodiscard]] RunningBase& running() override { return *running_; }

  const std::shared_ptr<ClientCore> core_;
  const CallPtr call_;
  const std::shared_ptr<Running<T>> running_;
};

}  // namespace varo::detail
