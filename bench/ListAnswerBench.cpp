// Question: how fast does a list answer of many records get from its bytes to the application's
// success block, beside the JSON library's bare parse of the same bytes? Each run is one process
// and parses once, so that the allocator starts cold as it does in an application.
//
//   varo_list_answer_bench write FILE RECORDS   writes the answer
//   varo_list_answer_bench ours  FILE           prints the seconds from bytes to success block
//   varo_list_answer_bench bare  FILE           prints the seconds of the bare parse

#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

#include <charconv>
#include <chrono>
#include <cstddef>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace {

using varo::binary::BinaryFileStorageInterface;
using varo::platform::Data;
using varo::platform::HttpCompletion;
using varo::platform::HttpRequest;
using varo::platform::HttpResponse;
using varo::platform::HttpTransfer;
using varo::platform::HttpTransport;
using varo::platform::LogLevel;
using varo::platform::Runtime;
using varo::platform::Value;
using varo::platform::VaroNativeFacade;
using varo::platform::VRONetworkUtility;
using Clock = std::chrono::steady_clock;

class NoTransfer final : public HttpTransfer {
 public:
  void cancel() override {}
};

/// Answers one request with the bytes it was given, and notes when.
class BytesTransport final : public HttpTransport {
 public:
  explicit BytesTransport(std::string bytes) : bytes_(std::move(bytes)) {}

  std::shared_ptr<HttpTransfer> send(HttpRequest, HttpCompletion completion) override {
    (void)Runtime::shared().pool().post([this, completion = std::move(completion)] {
      HttpResponse response;
      response.status = 200;
      response.headers = {{"Content-Type", "application/json"}};
      response.body = Data::fromBytes(std::move(bytes_));
      completedAt_ = Clock::now();
      completion(std::move(response), nullptr);
    });
    return std::make_shared<NoTransfer>();
  }
  void shutdown() override {}

  /// Once the answer has arrived.
  [[nodiscard]] Clock::time_point completedAt() const { return completedAt_; }

 private:
  std::string bytes_;
  Clock::time_point completedAt_;
};

int write(const char* path, std::string_view recordsText) {
  std::size_t records = 0;
  std::from_chars(recordsText.begin(), recordsText.end(), records);
  std::string text = R"({"opstatus":0,"records":[)";
  for (std::size_t number = 0; number < records; ++number) {
    text += fmt::format(
        R"({}{{"file_id":"0b9f1c52-6d1e-4c5e-9a57-{:012}","file_name":"document-{}.pdf",)"
        R"("file_namespace":"documents","size":{},"updated":"2024-05-01T12:00:00Z",)"
        R"("status":"committed","deleted":false}})",
        number == 0 ? "" : ",", number, number, 1000 + number * 37);
  }
  text += "]}";
  std::ofstream out(path, std::ios::binary);
  out << text;
  return out.flush() ? 0 : 1;
}

std::string contentsOf(const char* path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::optional<Clock::duration> parseOurs(std::string bytes) {
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kError);
  const auto transport = std::make_shared<BytesTransport>(std::move(bytes));
  VRONetworkUtility::setTransport(transport);
  std::promise<std::optional<Clock::duration>> taken;
  BinaryFileStorageInterface::getFilesWithUrl(
      "http://localhost/services/files", std::nullopt, std::nullopt,
      [&](const Value& result) {
        const auto now = Clock::now();
        const bool whole = result.dictionaryValue()["records"].isArray();
        taken.set_value(whole ? std::optional(now - transport->completedAt()) : std::nullopt);
      },
      [&](const Value&) { taken.set_value(std::nullopt); }, std::nullopt);
  return taken.get_future().get();
}

std::optional<Clock::duration> parseBare(const std::string& bytes) {
  const auto start = Clock::now();
  const boost::json::value answer = boost::json::parse(bytes);
  const auto end = Clock::now();
  return answer.is_object() ? std::optional(end - start) : std::nullopt;
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc > 2 ? argv[1] : "";
  if (mode == "write" && argc == 4) return write(argv[2], argv[3]);
  if (argc != 3 || (mode != "ours" && mode != "bare")) {
    fmt::print(stderr,
               "usage: varo_list_answer_bench write FILE RECORDS\n"
               "       varo_list_answer_bench ours|bare FILE\n");
    return 2;
  }
  const auto took =
      mode == "ours" ? parseOurs(contentsOf(argv[2])) : parseBare(contentsOf(argv[2]));
  if (!took) {
    fmt::print(stderr, "varo_list_answer_bench: the answer did not arrive\n");
    return 1;
  }
  fmt::print("{}\n", std::chrono::duration<double>(*took).count());
}
