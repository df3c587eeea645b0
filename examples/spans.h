#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <ostream>
#include <random>
#include <string>
#include <varo/client.h>

/// Writes each operation and each of its requests as a span, one JSON object a line, with the names
/// that OpenTelemetry has for it: an operation is a trace, its requests are the children of its
/// span. Its functions are what `Options::onRequest` and `onOperation` call. Thread-safe.
class Spans {
 public:
  /// `to` lives as long as this.
  explicit Spans(std::ostream& to) : to_(to) {}

  void add(const varo::RequestEvent& event) {
    std::string attributes = text("http.request.method", event.method) + "," +
                             text("url.full", event.url) + "," +
                             number("http.request.resend_count", event.attempt - 1) + "," +
                             number("http.request.body.size", event.sent.count) + "," +
                             number("http.response.body.size", event.received.count);
    if (event.status) attributes += "," + number("http.response.status_code", *event.status);
    if (event.error)
      attributes += "," + text("error.type", std::string(varo::nameOf(*event.error)));
    for (const auto& [name, time] : {std::pair{"varo.queue_us", event.queue},
                                     {"varo.connect_us", event.connect},
                                     {"varo.first_byte_us", event.firstByte}}) {
      if (time) attributes += "," + number(name, time->count());
    }
    const std::scoped_lock lock(mutex_);
    write(event.operation, ++requests_, event.method, event.begun, event.total, attributes);
  }
  void add(const varo::OperationEvent& event) {
    std::string attributes =
        number("varo.attempts", event.attempts) + "," + number("varo.bytes", event.done.count);
    if (event.failure) {
      attributes += "," + text("error.type", std::string(varo::nameOf(*event.failure)));
    }
    const std::scoped_lock lock(mutex_);
    write(event.id, 0, std::string(varo::nameOf(event.kind)), event.begun, event.duration,
          attributes);
  }

 private:
  static std::string hex(std::uint64_t value) {
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(value));
    return digits;
  }
  static std::string quoted(const std::string& text) {
    std::string result = "\"";
    for (const char c : text) {
      if (c == '"' || c == '\\') result += '\\';
      if (static_cast<unsigned char>(c) >= 0x20) result += c;
    }
    return result + '"';
  }
  static std::string text(const std::string& name, const std::string& value) {
    return quoted(name) + ":" + quoted(value);
  }
  template <typename Number>
  static std::string number(const std::string& name, Number value) {
    return quoted(name) + ":" + std::to_string(value);
  }

  /// `request` 0: the operation itself.
  void write(std::uint64_t operation, std::uint64_t request, const std::string& name,
             std::chrono::system_clock::time_point begun, std::chrono::microseconds took,
             const std::string& attributes) {
    const auto start = std::chrono::nanoseconds(begun.time_since_epoch());
    // Unlike any of an operation, whose ids count up as well.
    constexpr std::uint64_t kOfRequest = std::uint64_t{1} << 63U;
    to_ << "{\"traceId\":\"" << hex(run_) << hex(operation) << "\",\"spanId\":\""
        << hex(request == 0 ? operation : kOfRequest + request) << "\",\"parentSpanId\":\""
        << (request == 0 ? "" : hex(operation)) << "\",\"name\":" << quoted(name)
        << ",\"startTimeUnixNano\":" << start.count()
        << ",\"endTimeUnixNano\":" << (start + took).count() << ",\"attributes\":{" << attributes
        << "}}\n";
  }

  /// No other run of the program has the same.
  const std::uint64_t run_ =
      (std::uint64_t{std::random_device()()} << 32U) | std::random_device()();
  std::mutex mutex_;  // guards all below
  std::uint64_t requests_ = 0;
  std::ostream& to_;
};
