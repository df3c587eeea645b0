#include "Cli/Run/TransferWatch.h"

#include <utility>

namespace varo::cli {

using platform::MutexLock;

TransferWatch::TransferWatch(std::shared_ptr<platform::HttpTransport> next)
    : next_(std::move(next)), state_(std::make_shared<State>()) {}

TransferWatch::~TransferWatch() = default;

TransferWatch::Clock::duration TransferWatch::idleTime() const {
  MutexLock lock(state_->mutex);
  return state_->underWay > 0 ? Clock::duration::zero() : Clock::now() - state_->idleSince;
}

void TransferWatch::hold() noexcept {
  MutexLock lock(state_->mutex);
  ++state_->underWay;
}

void TransferWatch::release() noexcept {
  MutexLock lock(state_->mutex);
  --state_->underWay;
  state_->idleSince = Clock::now();
}

std::shared_ptr<platform::HttpTransfer> TransferWatch::send(platform::HttpRequest request,
                                                            platform::HttpCompletion completion) {
  {
    MutexLock lock(state_->mutex);
    // Before the transfer begins: it may complete on another thread before `send` returns.
    ++state_->underWay;
  }
  // The state is shared, since a late completion may outlive this object.
  auto watched = [state = state_, completion = std::move(completion)](
                     std::optional<platform::HttpResponse> response, platform::ErrorPtr error) {
    // The end of the completion, not of the transfer: it may start the next transfer.
    completion(std::move(response), std::move(error));
    MutexLock lock(state->mutex);
    --state->underWay;
    state->idleSince = Clock::now();
  };
  return next_->send(std::move(request), std::move(watched));
}

void TransferWatch::shutdown() { next_->shutdown(); }

}  // namespace varo::cli
