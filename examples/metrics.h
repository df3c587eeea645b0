#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <ostream>
#include <string>
#include <varo/client.h>

/// Counters and a histogram of a client's requests, as the text exposition format of Prometheus has
/// them. Its functions are what `Options::onRequest` and `onOperation` call. Thread-safe.
class Metrics {
 public:
  void add(const varo::RequestEvent& event) {
    const std::string outcome = event.error    ? std::string(varo::nameOf(*event.error))
                                : event.status ? std::to_string(*event.status / 100) + "xx"
                                               : "none";
    const std::scoped_lock lock(mutex_);
    ++requests_[label("kind", varo::nameOf(event.kind)) + "," + label("method", event.method) +
                "," + label("outcome", outcome)];
    if (event.attempt > 1) ++repeated_;
    sent_ += event.sent.count;
    received_ += event.received.count;
    const double seconds = static_cast<double>(event.total.count()) / 1e6;
    sum_ += seconds;
    for (std::size_t i = 0; i < kBounds.size(); ++i) counts_[i] += seconds <= kBounds[i] ? 1 : 0;
    ++count_;
  }
  void add(const varo::OperationEvent& event) {
    const std::string_view outcome = event.failure ? varo::nameOf(*event.failure) : "ok";
    const std::scoped_lock lock(mutex_);
    ++operations_[label("kind", varo::nameOf(event.kind)) + "," + label("outcome", outcome)];
  }

  /// What a scrape gets.
  void write(std::ostream& to) const {
    const std::scoped_lock lock(mutex_);
    write(to, "varo_operations_total", "Operations that have ended.", operations_);
    write(to, "varo_requests_total", "Requests that have ended.", requests_);
    write(to, "varo_requests_repeated_total", "Requests that were sent again.", {{"", repeated_}});
    write(to, "varo_body_bytes_total", "Bytes of bodies.",
          {{label("direction", "received"), received_}, {label("direction", "sent"), sent_}});
    const std::string name = "varo_request_seconds";
    to << "# HELP " << name << " How long requests took.\n# TYPE " << name << " histogram\n";
    for (std::size_t i = 0; i < kBounds.size(); ++i) {
      to << name << "_bucket{le=\"" << kBounds[i] << "\"} " << counts_[i] << '\n';
    }
    to << name << "_bucket{le=\"+Inf\"} " << count_ << '\n'
       << name << "_sum " << sum_ << '\n'
       << name << "_count " << count_ << '\n';
  }

 private:
  using Counters = std::map<std::string, std::uint64_t>;
  static constexpr std::array kBounds{0.005, 0.01, 0.025, 0.05, 0.1, 0.25,
                                      0.5,   1.0,  2.5,   5.0,  10.0};

  /// Names and methods have nothing that would have to be escaped.
  static std::string label(std::string_view name, std::string_view value) {
    return std::string(name) + "=\"" + std::string(value) + '"';
  }
  static void write(std::ostream& to, const std::string& name, const char* help,
                    const Counters& counters) {
    to << "# HELP " << name << ' ' << help << "\n# TYPE " << name << " counter\n";
    for (const auto& [labels, count] : counters) {
      to << name << (labels.empty() ? "" : "{" + labels + "}") << ' ' << count << '\n';
    }
  }

  mutable std::mutex mutex_;  // guards all below
  Counters requests_;
  Counters operations_;
  std::uint64_t repeated_ = 0;
  std::uint64_t sent_ = 0;
  std::uint64_t received_ = 0;
  std::array<std::uint64_t, kBounds.size()> counts_{};
  std::uint64_t count_ = 0;
  double sum_ = 0;
};
