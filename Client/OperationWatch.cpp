#include "Client/OperationWatch.h"

#include "Client/Failures.h"
#include "Platform/Foundation/JobContext.h"

#include <atomic>
#include <exception>
#include <utility>

namespace varo {

std::string_view nameOf(OperationKind kind) noexcept {
  switch (kind) {
    case OperationKind::kFileList:
      break;
    case OperationKind::kFileUpload:
      return "fileUpload";
    case OperationKind::kFileDownload:
      return "fileDownload";
    case OperationKind::kFileUpdate:
      return "fileUpdate";
    case OperationKind::kFileRemove:
      return "fileRemove";
    case OperationKind::kFileRemoveWhere:
      return "fileRemoveWhere";
    case OperationKind::kBlobFetch:
      return "blobFetch";
    case OperationKind::kObjectPut:
      return "objectPut";
    case OperationKind::kObjectGet:
      return "objectGet";
    case OperationKind::kObjectHead:
      return "objectHead";
    case OperationKind::kObjectList:
      return "objectList";
    case OperationKind::kObjectRemove:
      return "objectRemove";
  }
  return "fileList";
}

namespace detail {

using platform::MutexLock;
using platform::RequestReport;

namespace {

std::uint64_t nextId() noexcept {
  static std::atomic<std::uint64_t> last{0};
  return ++last;
}

/// An application's code works on its own account, and may throw anything.
template <typename Event>
void call(const std::function<void(const Event&)>& observer, const Event& event) noexcept {
  if (observer == nullptr) return;
  const platform::JobContext::Scope none(nullptr);
  try {
    observer(event);
  } catch (...) {  // there is nobody to tell it
  }
}

}  // namespace

OperationWatch::OperationWatch(std::shared_ptr<const Observers> observers, OperationKind kind)
    : observers_(std::move(observers)) {
  operation_.id = nextId();
  operation_.kind = kind;
  operation_.begun = std::chrono::system_clock::now();
}

RequestEvent eventOf(const RequestReport& report) {
  RequestEvent event;
  event.method = nameOf(report.method);
  event.url = report.url;
  event.attempt = report.attempt;
  event.status = report.status;
  event.error = kindOfEnd(report.status, report.error);
  event.sent = Bytes(report.measure.sent);
  event.received = Bytes(report.measure.received);
  event.begun = report.begun;
  event.queue = report.measure.queue;
  event.connect = report.measure.connect;
  event.firstByte = report.measure.firstByte;
  event.total = report.total;
  return event;
}

void OperationWatch::requestBegins() noexcept {
  const MutexLock lock(mutex_);
  ++underWay_;
}

void OperationWatch::requestEnded(const RequestReport& report) noexcept {
  try {
    RequestEvent event = eventOf(report);
    const MutexLock lock(mutex_);
    event.operation = operation_.id;
    event.kind = operation_.kind;
    ++operation_.attempts;
    operation_.sent.count += event.sent.count;
    operation_.received.count += event.received.count;
    due_.push_back(std::move(event));
  } catch (const std::exception&) {
    // There is no memory to tell it.
  }
  {
    const MutexLock lock(mutex_);
    --underWay_;
  }
  tellDue();
}

void OperationWatch::end(std::optional<Kind> failure, std::uint64_t done) noexcept {
  {
    const MutexLock lock(mutex_);
    if (std::exchange(hasEnded_, true)) return;
    operation_.failure = failure;
    operation_.done = Bytes(done);
    operation_.duration = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::steady_clock::now() - since_);
  }
  tellDue();
}

bool OperationWatch::takeNext(std::optional<RequestEvent>& request,
                              std::optional<OperationEvent>& operation) {
  request.reset();
  operation.reset();
  const MutexLock lock(mutex_);
  if (!due_.empty()) {
    request.emplace(std::move(due_.front()));
    due_.pop_front();
  } else if (hasEnded_ && underWay_ == 0 && !std::exchange(isEndTold_, true)) {
    operation = operation_;
  }
  isTelling_ = request || operation;
  return isTelling_;
}

void OperationWatch::tellDue() noexcept {
  {
    const MutexLock lock(mutex_);
    if (std::exchange(isTelling_, true)) return;
  }
  std::optional<RequestEvent> request;
  std::optional<OperationEvent> operation;
  while (takeNext(request, operation)) {
    if (request) call(observers_->onRequest, *request);
    if (operation) call(observers_->onOperation, *operation);
  }
}

}  // namespace detail

}  // namespace varo
