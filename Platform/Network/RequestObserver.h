#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Object.h"
#include "Platform/Network/HttpTransport.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace varo::platform {

/// What a transport has measured of one request, over all its redirects.
struct RequestMeasure {
  /// Bytes of bodies, as they went over the line.
  std::uint64_t sent = 0;
  std::uint64_t received = 0;
  /// How long it waited inside the transport for its turn.
  std::optional<std::chrono::microseconds> queue = {};
  /// How long it took to connect, name look-up and TLS included; none where a kept connection was
  /// used.
  std::optional<std::chrono::microseconds> connect = {};
  /// From when it was sent to the first byte of its response.
  std::optional<std::chrono::microseconds> firstByte = {};
};

/// Where a transport puts its measurements: `HttpRequest::meter`. Thread-safe.
class RequestMeter {
 public:
  void set(const RequestMeasure& measure) {
    const MutexLock lock(mutex_);
    measure_ = measure;
  }
  /// None where the transport has set nothing.
  [[nodiscard]] std::optional<RequestMeasure> measure() const {
    const MutexLock lock(mutex_);
    return measure_;
  }

 private:
  mutable Mutex mutex_;
  std::optional<RequestMeasure> measure_ VARO_GUARDED_BY(mutex_);
};

/// One attempt of a request that has ended.
struct RequestReport {
  HttpMethod method = HttpMethod::kGet;
  /// As `urlWithoutValues` leaves it.
  std::string url;
  /// How often the request was sent by then.
  int attempt = 1;
  std::chrono::system_clock::time_point begun;
  std::chrono::microseconds total{0};
  /// Of the response, if there was one.
  std::optional<int> status;
  /// Why there was none.
  ErrorPtr error;
  /// Without times where the transport measures none.
  RequestMeasure measure;
};

/// Is told of each attempt that goes to the transport. Thread-safe; called on any thread of the
/// library, with no lock held.
class RequestObserver : public Object {
 public:
  /// One is about to be sent. Exactly one `requestEnded` follows.
  virtual void requestBegins() noexcept = 0;
  /// It has ended; before anybody hears of its response.
  virtual void requestEnded(const RequestReport& report) noexcept = 0;

  [[nodiscard]] std::string description() const override { return "RequestObserver"; }
};

/// One attempt that is observed, from just before it is sent. Not thread-safe.
class ObservedRequest {
 public:
  /// Has `request` measured.
  ObservedRequest(std::shared_ptr<RequestObserver> observer, HttpRequest& request, int attempt);
  ObservedRequest(const ObservedRequest&) = delete;
  ObservedRequest& operator=(const ObservedRequest&) = delete;
  /// Ends it where nobody else has: it was never sent.
  ~ObservedRequest();

  /// Exactly one of the two is not null, as in an `HttpCompletion`. Only the first call counts.
  void end(const HttpResponse* response, const ErrorPtr& error) noexcept;

 private:
  const std::shared_ptr<RequestMeter> meter_ = std::make_shared<RequestMeter>();
  std::shared_ptr<RequestObserver> observer_;  // null once it was told
  RequestReport report_;
  std::chrono::steady_clock::time_point since_;
};

}  // namespace varo::platform
