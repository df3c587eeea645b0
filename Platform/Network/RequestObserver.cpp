#include "Platform/Network/RequestObserver.h"

#include "Platform/Foundation/Redaction.h"

#include <utility>

namespace varo::platform {

using std::chrono::steady_clock;

ObservedRequest::ObservedRequest(std::shared_ptr<RequestObserver> observer, HttpRequest& request,
                                 int attempt)
    : observer_(std::move(observer)), since_(steady_clock::now()) {
  report_.method = request.method;
  report_.url = urlWithoutValues(request.url);
  report_.attempt = attempt;
  report_.begun = std::chrono::system_clock::now();
  request.meter = meter_;
  observer_->requestBegins();  // last: from here on there is an end
}

ObservedRequest::~ObservedRequest() { end(nullptr, nullptr); }

void ObservedRequest::end(const HttpResponse* response, const ErrorPtr& error) noexcept {
  const auto observer = std::exchange(observer_, nullptr);
  if (observer == nullptr) return;
  report_.total =
      std::chrono::duration_cast<std::chrono::microseconds>(steady_clock::now() - since_);
  if (response != nullptr) report_.status = response->status;
  report_.error = error;
  if (const auto measured = meter_->measure()) {
    report_.measure = *measured;
  } else if (response != nullptr && response->body) {
    report_.measure.received = response->body->size();
  }
  observer->requestEnded(report_);
}

}  // namespace varo::platform
