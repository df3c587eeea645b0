#include "Client/C/CTransfer.h"

#include "Client/C/GivenStruct.h"
#include "Client/C/Guarded.h"

#include <optional>

namespace varo::capi {

namespace {

static_assert(static_cast<int>(State::kWaiting) == VARO_WAITING);
static_assert(static_cast<int>(State::kRunning) == VARO_RUNNING);
static_assert(static_cast<int>(State::kPaused) == VARO_PAUSED);
static_assert(static_cast<int>(State::kBackingOff) == VARO_BACKING_OFF);
static_assert(static_cast<int>(State::kDone) == VARO_DONE);

class NoMemoryTransfer final : public varo_transfer {
 public:
  // Whoever sets a callback is told that it will not be called.
  void onProgress(varo_progress_fn /*callback*/, void* /*user*/) override {
    throw std::bad_alloc();
  }
  void onDone(varo_done_fn /*callback*/, void* /*user*/) override { throw std::bad_alloc(); }
  void cancel() override {}
  void pause() override {}
  void resume() override {}
  [[nodiscard]] State state() const override { return State::kDone; }
  [[nodiscard]] Progress progress() const override { return {}; }
  [[nodiscard]] bool waitFor(std::chrono::milliseconds /*most*/) const override { return true; }
  [[nodiscard]] const varo_outcome& outcome() const override { return noMemoryOutcome(); }
  void detach() override {}
};

/// Calls a function of a transfer that has no result.
template <typename Call>
varo_code told(varo_transfer* transfer, Call call) noexcept {
  if (transfer == nullptr) return VARO_INVALID_ARGUMENT;
  return guarded([&] {
    call(*transfer);
    return VARO_OK;
  });
}

bool waited(const varo_transfer& transfer, int64_t timeoutMs) {
  if (timeoutMs >= 0) return transfer.waitFor(std::chrono::milliseconds(timeoutMs));
  // The longest wait has an end.
  while (!transfer.waitFor(std::chrono::milliseconds::max())) continue;
  return true;
}

}  // namespace

varo_progress progressFrom(const Progress& progress) {
  varo_progress shown = {};
  shown.size = sizeof shown;
  shown.done = progress.done;
  shown.total = progress.total;
  shown.bytes_per_second = progress.bytesPerSecond;
  shown.seconds_left = progress.left ? progress.left->count() : -1;
  shown.attempt = progress.attempt;
  return shown;
}

varo_transfer* noMemoryTransfer() noexcept {
  static NoMemoryTransfer transfer;
  return &transfer;
}

}  // namespace varo::capi

using varo::capi::told;

varo_code varo_transfer_on_progress(varo_transfer* transfer, varo_progress_fn callback,
                                    void* user) {
  return told(transfer, [&](varo_transfer& it) { it.onProgress(callback, user); });
}

varo_code varo_transfer_on_done(varo_transfer* transfer, varo_done_fn callback, void* user) {
  return told(transfer, [&](varo_transfer& it) { it.onDone(callback, user); });
}

varo_code varo_transfer_cancel(varo_transfer* transfer) {
  return told(transfer, [](varo_transfer& it) { it.cancel(); });
}

varo_code varo_transfer_pause(varo_transfer* transfer) {
  return told(transfer, [](varo_transfer& it) { it.pause(); });
}

varo_code varo_transfer_resume(varo_transfer* transfer) {
  return told(transfer, [](varo_transfer& it) { it.resume(); });
}

varo_state varo_transfer_state(const varo_transfer* transfer) {
  return transfer != nullptr ? static_cast<varo_state>(transfer->state()) : VARO_DONE;
}

varo_code varo_transfer_progress(const varo_transfer* transfer, varo_progress* progress) {
  if (transfer == nullptr || progress == nullptr) return VARO_INVALID_ARGUMENT;
  const varo_progress shown = varo::capi::progressFrom(transfer->progress());
  return varo::capi::fillStruct(progress, shown) ? VARO_OK : VARO_INVALID_ARGUMENT;
}

varo_code varo_transfer_wait(const varo_transfer* transfer, int64_t timeout_ms) {
  if (transfer == nullptr) return VARO_INVALID_ARGUMENT;
  return varo::capi::guarded([&] {
    return varo::capi::waited(*transfer, timeout_ms) ? transfer->outcome().code() : VARO_PENDING;
  });
}

const varo_outcome* varo_transfer_outcome(const varo_transfer* transfer) {
  if (transfer == nullptr || transfer->state() != varo::State::kDone) return nullptr;
  try {
    return &transfer->outcome();
  } catch (const std::bad_alloc&) {
    return &varo::capi::noMemoryOutcome();
  }
}

void varo_transfer_release(varo_transfer* transfer) {
  if (transfer == varo::capi::noMemoryTransfer()) return;
  const std::unique_ptr<varo_transfer> owned(transfer);
}

void varo_transfer_detach(varo_transfer* transfer) {
  if (transfer != nullptr) transfer->detach();
  varo_transfer_release(transfer);
}
