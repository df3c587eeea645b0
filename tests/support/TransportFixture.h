#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Foundation/TimerQueue.h"
#include "Platform/Network/CurlHttpTransport.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/TransportFailure.h"
#include "tests/support/ScriptedServer.h"
#include "tests/support/TemporaryDirectory.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace varo::test {

/// How one transfer ended.
struct Outcome {
  std::optional<platform::HttpResponse> response;
  platform::ErrorPtr error;
  bool onPool = false;

  /// 0 for a response.
  [[nodiscard]] std::int64_t errorCode() const { return error == nullptr ? 0 : error->code(); }
  /// The name of the `TransportFailure`; empty for a response.
  [[nodiscard]] std::string failure() const {
    return error == nullptr ? "" : error->userInfo()[platform::kTransportFailureKey].textValue();
  }
  [[nodiscard]] int status() const { return response ? response->status : 0; }
  /// None where the response has no body.
  [[nodiscard]] std::optional<std::string> body() const {
    if (!response || !response->body) return std::nullopt;
    auto bytes = response->body->readAll(std::uint64_t{1} << 30U);
    return bytes ? *bytes : "<" + bytes.error()->localizedDescription() + ">";
  }
  [[nodiscard]] std::string text() const {
    return error == nullptr ? "status " + std::to_string(status()) : error->description();
  }
};

[[nodiscard]] inline std::int64_t codeOf(platform::HttpTransportError code) {
  return static_cast<std::int64_t>(code);
}

/// A curl transport on a pool of its own, and a directory that goes with it.
class TransportTest : public testing::Test {
 protected:
  TransportTest() {
    configuration_.connectTimeout = std::chrono::seconds(5);
    configuration_.stallTimeout = std::chrono::seconds(20);
    remake();
  }
  ~TransportTest() override { transport_.reset(); }

  /// A transport with what `configuration_` says now.
  void remake() {
    transport_ = std::make_unique<platform::CurlHttpTransport>(configuration_, pool_, cookies_);
  }

  /// A transport that gives up soon, for peers that fall silent.
  void remakeImpatient() {
    configuration_.stallTimeout = std::chrono::milliseconds(400);
    remake();
  }

  std::pair<std::shared_ptr<platform::HttpTransfer>, std::future<Outcome>> start(
      platform::HttpRequest request) {
    if (request.spoolDirectory.empty()) request.spoolDirectory = directory_;
    auto promise = std::make_shared<std::promise<Outcome>>();
    std::future<Outcome> outcome = promise->get_future();
    // A second call would throw, which the pool reports and `calls_` shows.
    auto transfer = transport_->send(
        std::move(request), [this, promise](auto response, platform::ErrorPtr error) {
          calls_.fetch_add(1);
          promise->set_value({std::move(response), std::move(error), pool_.runsInThisThread()});
        });
    return {std::move(transfer), std::move(outcome)};
  }
  Outcome run(platform::HttpRequest request) { return start(std::move(request)).second.get(); }
  Outcome get(const std::string& url, std::vector<platform::HttpHeader> headers = {}) {
    return run({platform::HttpMethod::kGet, url, std::move(headers), {}, {}});
  }
  Outcome put(const std::string& url, std::vector<platform::Data> body,
              std::vector<platform::HttpHeader> headers = {}) {
    return run({platform::HttpMethod::kPut, url, std::move(headers), std::move(body), {}});
  }

  const TemporaryDirectory temporary_;
  const std::string& directory_ = temporary_.path();
  platform::NetworkConfiguration configuration_;
  platform::HttpCookieStore cookies_;
  std::atomic<int> calls_{0};
  platform::TimerQueue timers_;
  platform::ThreadPool pool_{{.name = "test"}, timers_};
  std::unique_ptr<platform::CurlHttpTransport> transport_;
};

}  // namespace varo::test
