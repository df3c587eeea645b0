// Transfers under one rate limit, for how precise and how even it is:
//
//   varo_rate download|upload URL BYTES_PER_SECOND TRANSFERS SECONDS
//
// Runs so many transfers at once that none ends before, and ends them after SECONDS. Prints the
// bytes that each has moved by then, in one line.

#include "Platform/Foundation/Runtime.h"
#include "Platform/Network/CurlHttpTransport.h"
#include "Platform/Network/HttpCookieStore.h"
#include "bench/NumberIn.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

namespace platform = varo::platform;

/// Counts what arrives.
class Counter final : public platform::BodyReceiver {
 public:
  platform::Result<void> begin(int /*status*/, const std::vector<platform::HttpHeader>& /*headers*/,
                               std::optional<std::uint64_t> /*expected*/) override {
    return {};
  }
  platform::Result<void> write(std::string_view bytes) override {
    count += bytes.size();
    return {};
  }
  std::atomic<std::uint64_t> count{0};
};

platform::HttpRequest request(bool isUpload, const std::string& url,
                              const std::shared_ptr<Counter>& counter, std::uint64_t bytes) {
  platform::HttpRequest made{
      isUpload ? platform::HttpMethod::kPut : platform::HttpMethod::kGet, url, {}, {}, {}};
  made.receiver = counter;
  if (!isUpload) return made;
  // The same bytes again and again: the pieces share them.
  const auto piece = platform::Data::fromBytes(std::string(std::size_t{1} << 20U, 'x'));
  made.body.emplace(bytes / piece.size() + 1, piece);
  made.onSent = [counter](std::uint64_t sent) { counter->count = sent; };
  return made;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view command = argc > 1 ? argv[1] : "";
  if ((command != "download" && command != "upload") || argc != 6) {
    fmt::print(stderr, "usage: varo_rate download|upload URL BYTES_PER_SECOND TRANSFERS SECONDS\n");
    return 2;
  }
  const auto rate = static_cast<std::uint64_t>(varo::bench::numberIn(argv[3]));
  const auto transfers = varo::bench::numberIn(argv[4]);
  const auto seconds = varo::bench::numberIn(argv[5]);
  platform::NetworkConfiguration configuration;
  configuration.bytesPerSecond = rate;
  platform::CurlHttpTransport transport(configuration, platform::Runtime::shared().pool());
  std::vector<std::shared_ptr<Counter>> counters;
  const auto begin = std::chrono::steady_clock::now();
  for (int i = 0; i < transfers; ++i) {
    counters.push_back(std::make_shared<Counter>());
    transport.send(request(command == "upload", argv[2], counters.back(),
                           2 * rate * static_cast<std::uint64_t>(seconds)),
                   [](const auto& /*response*/, const auto& /*error*/) {});
  }
  std::this_thread::sleep_until(begin + std::chrono::seconds(seconds));
  std::string line;
  for (const auto& counter : counters) line += fmt::format("{} ", counter->count.load());
  fmt::print("{}\n", line);
  transport.shutdown();
  platform::Runtime::shared().shutdown();
  return 0;
}
