// Question: how fast does a list answer of many records get from its bytes to the application's
// success block, beside bare parses of the same bytes into the trees of two JSON libraries? Each
// run is one process and parses once, so that the allocator starts cold as it does in an
// application.
//
//   varo_list_answer_bench write    FILE RECORDS   writes the answer
//   varo_list_answer_bench ours     FILE           prints the seconds from bytes to success block
//   varo_list_answer_bench boost    FILE           prints the seconds of Boost.JSON's parse
//   varo_list_answer_bench nlohmann FILE           prints the seconds of nlohmann's parse

#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/VaroNativeFacade.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "tests/support/FakeHttpTransport.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>
#include <nlohmann/json.hpp>

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
#include <thread>
#include <utility>

namespace {

using varo::binary::BinaryFileStorageInterface;
using varo::platform::LogLevel;
using varo::platform::Runtime;
using varo::platform::Value;
using varo::platform::VaroNativeFacade;
using varo::platform::VRONetworkUtility;
using varo::test::answerWith;
using varo::test::FakeHttpTransport;
using Clock = std::chrono::steady_clock;

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
  const auto transport = std::make_shared<FakeHttpTransport>();
  transport->hold();
  transport->answer(answerWith(200, std::move(bytes), {{"Content-Type", "application/json"}}));
  VRONetworkUtility::setTransport(transport);
  Clock::time_point completedAt;
  std::promise<std::optional<Clock::duration>> taken;
  BinaryFileStorageInterface::getFilesWithUrl(
      "http://localhost/services/files", std::nullopt, std::nullopt,
      [&](const Value& result) {
        const auto now = Clock::now();
        const bool whole = result.dictionaryValue()["records"].isArray();
        taken.set_value(whole ? std::optional(now - completedAt) : std::nullopt);
      },
      [&](const Value&) { taken.set_value(std::nullopt); }, std::nullopt);
  while (transport->heldCount() == 0) std::this_thread::yield();
  // On the pool, where a transport completes its requests.
  Runtime::shared().pool().postOrRun([transport, &completedAt] {
    completedAt = Clock::now();
    (void)transport->release();
  });
  return taken.get_future().get();
}

/// The time of `parse`, which gives the tree.
template <typename Parse>
std::optional<Clock::duration> timed(const std::string& bytes, Parse parse) {
  const auto start = Clock::now();
  const auto answer = parse(bytes);
  const auto end = Clock::now();
  return answer.is_object() ? std::optional(end - start) : std::nullopt;
}

std::optional<Clock::duration> run(std::string_view mode, std::string bytes) {
  if (mode == "ours") return parseOurs(std::move(bytes));
  if (mode == "boost") {
    return timed(bytes, [](const std::string& text) { return boost::json::parse(text); });
  }
  return timed(bytes, [](const std::string& text) { return nlohmann::json::parse(text); });
}

}  // namespace

int main(int argc, char** argv) {
  const std::string_view mode = argc > 2 ? argv[1] : "";
  if (mode == "write" && argc == 4) return write(argv[2], argv[3]);
  if (argc != 3 || (mode != "ours" && mode != "boost" && mode != "nlohmann")) {
    fmt::print(stderr,
               "usage: varo_list_answer_bench write FILE RECORDS\n"
               "       varo_list_answer_bench ours|boost|nlohmann FILE\n");
    return 2;
  }
  const auto took = run(mode, contentsOf(argv[2]));
  if (!took) {
    fmt::print(stderr, "varo_list_answer_bench: the answer did not arrive\n");
    return 1;
  }
  fmt::print("{}\n", std::chrono::duration<double>(*took).count());
}
