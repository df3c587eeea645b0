#include "tests/support/FakeHttpTransport.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"

#include <stdexcept>
#include <utility>

namespace varo::test {
namespace {

using namespace platform;

constexpr std::string_view kDomain = "FakeHttpTransport";
constexpr std::int64_t kNoAnswerScripted = 1;
/// Pieces larger than this are not read out.
constexpr std::uint64_t kLargestRecordedBody = std::uint64_t{256} * 1024 * 1024;

std::optional<std::string> readOut(const std::optional<std::vector<Data>>& pieces) {
  if (!pieces) return std::nullopt;
  std::string bytes;
  for (const Data& piece : *pieces) {
    auto read = piece.readAll(kLargestRecordedBody);
    bytes += read ? *read : "<unreadable: " + read.error()->description() + ">";
  }
  return bytes;
}

ErrorPtr shutDownError() {
  return makeTransportError(HttpTransportError::kShutDown, "The transport is shut down.");
}

}  // namespace

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  for (const HttpHeader& item : headers) {
    if (platform::equalIgnoringCase(item.name, name)) return item.value;
  }
  return std::nullopt;
}

ScriptedAnswer answerWith(int status, std::optional<std::string> body,
                          std::vector<HttpHeader> headers) {
  HttpResponse response;
  response.status = status;
  response.headers = std::move(headers);
  if (body) response.body = Data::fromBytes(*std::move(body));
  return {std::move(response), nullptr};
}

ScriptedAnswer failWith(std::int64_t code, std::string description) {
  return {std::nullopt, Error::make(kDomain, code, std::move(description))};
}

/// One request between `send` and its completion.
struct FakeHttpTransport::Transfer final : platform::HttpTransfer {
  Transfer(std::weak_ptr<FakeHttpTransport> fake, std::string address, ScriptedAnswer end,
           HttpCompletion handler)
      : owner(std::move(fake)),
        url(std::move(address)),
        answer(std::move(end)),
        completion(std::move(handler)) {}

  void cancel() override {
    const bool cancelled = completeOnPool({std::nullopt, cancelledError()});
    const auto fake = owner.lock();
    if (cancelled && fake != nullptr) fake->noteCancel(*this);
  }

  void complete() {
    const HttpCompletion once = take();
    if (once == nullptr || answer.end == ScriptedEnd::kDropped) return;
    if (answer.end == ScriptedEnd::kTwice) once(answer.response, answer.error);
    once(std::move(answer.response), std::move(answer.error));
  }
  /// False where it has ended already.
  bool completeOnPool(ScriptedAnswer end) {
    HttpCompletion once = take();
    if (once == nullptr) return false;
    Runtime::shared().pool().postOrRun(
        [once = std::move(once), end = std::move(end)]() { once(end.response, end.error); });
    return true;
  }
  HttpCompletion take() {
    const MutexLock lock(mutex);
    return std::exchange(completion, nullptr);
  }
  static ErrorPtr cancelledError() {
    return makeTransportError(HttpTransportError::kCancelled, "The transfer was cancelled.");
  }

  const std::weak_ptr<FakeHttpTransport> owner;
  const std::string url;
  ScriptedAnswer answer;  // read by the one thread that completes the transfer
  platform::Mutex mutex;
  HttpCompletion completion VARO_GUARDED_BY(mutex);
};

void FakeHttpTransport::answer(ScriptedAnswer answer) {
  const MutexLock lock(mutex_);
  script_.push_back(std::move(answer));
}

void FakeHttpTransport::setHandler(Handler handler) {
  const MutexLock lock(mutex_);
  handler_ = std::move(handler);
}

void FakeHttpTransport::forget() {
  const MutexLock lock(mutex_);
  forgets_ = true;
}

void FakeHttpTransport::hold() {
  const MutexLock lock(mutex_);
  holding_ = true;
}

bool FakeHttpTransport::release(std::size_t older) {
  TransferPtr released;
  {
    const MutexLock lock(mutex_);
    if (held_.size() <= older) return false;
    const auto which = held_.begin() + static_cast<std::ptrdiff_t>(older);
    released = std::move(*which);
    held_.erase(which);
  }
  released->complete();
  return true;
}

void FakeHttpTransport::releaseAll() {
  {
    const MutexLock lock(mutex_);
    holding_ = false;
  }
  while (release()) {
  }
}

std::vector<RecordedRequest> FakeHttpTransport::requests() const {
  const MutexLock lock(mutex_);
  return requests_;
}

std::size_t FakeHttpTransport::requestCount() const {
  const MutexLock lock(mutex_);
  return requests_.size();
}

std::size_t FakeHttpTransport::heldCount() const {
  const MutexLock lock(mutex_);
  return held_.size();
}

std::vector<std::string> FakeHttpTransport::cancelled() const {
  const MutexLock lock(mutex_);
  return cancelled_;
}

void FakeHttpTransport::noteCancel(const Transfer& transfer) {
  const MutexLock lock(mutex_);
  cancelled_.push_back(transfer.url);
  std::erase_if(held_, [&transfer](const TransferPtr& held) { return held.get() == &transfer; });
}

std::shared_ptr<platform::HttpTransfer> FakeHttpTransport::send(HttpRequest request,
                                                                HttpCompletion completion) {
  RecordedRequest record{request.method, request.url, request.headers, readOut(request.body),
                         request.spoolDirectory};
  record.limits = request.limits;
  record.connectTimeout = request.connectTimeout;
  record.stallTimeout = request.stallTimeout;
  if (request.body) {
    for (const Data& piece : *request.body) record.bodySize += piece.size();
  }
  ScriptedAnswer end = failWith(kNoAnswerScripted, "No answer is scripted for " + request.url);
  Handler handler;
  {
    const MutexLock lock(mutex_);
    if (!forgets_) requests_.push_back(record);
    if (shutDown_) {
      end = {std::nullopt, shutDownError()};
    } else if (!script_.empty()) {
      end = std::move(script_.front());
      script_.pop_front();
    } else {
      handler = handler_;
    }
  }
  if (handler) end = handler(record);
  if (request.method == HttpMethod::kHead && end.response) end.response->body.reset();
  if (end.end == ScriptedEnd::kThrows) throw std::runtime_error("scripted");

  auto transfer = std::make_shared<Transfer>(weak_from_this(), std::move(record.url),
                                             std::move(end), std::move(completion));
  {
    const MutexLock lock(mutex_);
    const bool isHeld = holding_ || transfer->answer.end == ScriptedEnd::kHeld;
    if (isHeld && !shutDown_) {
      held_.push_back(transfer);
      return transfer;
    }
  }
  Runtime::shared().pool().postOrRun([transfer]() { transfer->complete(); });
  return transfer;
}

void FakeHttpTransport::shutdown() {
  std::deque<TransferPtr> held;
  {
    const MutexLock lock(mutex_);
    shutDown_ = true;
    held.swap(held_);
  }
  for (const TransferPtr& transfer : held) {
    transfer->completeOnPool({std::nullopt, shutDownError()});
  }
}

}  // namespace varo::test
