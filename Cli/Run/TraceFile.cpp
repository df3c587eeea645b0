#include "Cli/Run/TraceFile.h"

#include "Cli/Failures/CommandErrors.h"
#include "Client/OperationWatch.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Random.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <fmt/format.h>

#include <cerrno>
#include <exception>
#include <limits>
#include <optional>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::File;
using platform::MutexLock;
using std::chrono::microseconds;

namespace {

/// 16 hexadecimal digits, not all of them zero.
std::string randomId() {
  return fmt::format(
      "{:016x}", platform::Random::system().integer(1, std::numeric_limits<std::int64_t>::max()));
}

std::string idOf(std::uint64_t span) { return fmt::format("{:016x}", span); }

std::int64_t unixNano(std::chrono::system_clock::time_point time) {
  return std::chrono::nanoseconds(time.time_since_epoch()).count();
}

platform::Result<std::shared_ptr<File>> emptyFile(const std::string& path) {
  auto made = File::createNew(path);
  if (made || made.error()->code() != EEXIST) return made;
  auto found = File::openForWriting(path);
  if (!found) return found;
  if (auto emptied = found.value()->setSize(0); !emptied) return emptied.error();
  return found;
}

Dictionary attributesOf(const RequestEvent& event) {
  Dictionary attributes{
      {"http.request.method", event.method},
      {"url.full", event.url},
      {"http.request.resend_count", event.attempt - 1},
      {"http.request.body.size", static_cast<std::int64_t>(event.sent.count)},
      {"http.response.body.size", static_cast<std::int64_t>(event.received.count)}};
  if (event.status) attributes.set("http.response.status_code", *event.status);
  if (event.error) attributes.set("error.type", std::string(nameOf(*event.error)));
  const auto add = [&attributes](const char* name, const std::optional<microseconds>& time) {
    if (time) attributes.set(name, static_cast<std::int64_t>(time->count()));
  };
  add("varo.queue_us", event.queue);
  add("varo.connect_us", event.connect);
  add("varo.first_byte_us", event.firstByte);
  return attributes;
}

}  // namespace

platform::Result<std::shared_ptr<TraceFile>> TraceFile::open(const std::string& path,
                                                             std::string command) {
  auto file = emptyFile(path);
  if (!file) {
    return platform::Error::make(kCommandLineErrorDomain, kCodeTraceNotOpened,
                                 fmt::format("--trace: {}", file.error()->localizedDescription()));
  }
  return std::make_shared<TraceFile>(std::move(file).value(), std::move(command));
}

std::shared_ptr<TraceFile> TraceFile::ofProcess() {
  return std::dynamic_pointer_cast<TraceFile>(platform::VRONetworkUtility::observer());
}

TraceFile::TraceFile(std::shared_ptr<File> file, std::string command)
    : command_(std::move(command)), trace_(randomId() + randomId()), file_(std::move(file)) {}

void TraceFile::requestEnded(const platform::RequestReport& report) noexcept {
  try {
    add(detail::eventOf(report));
  } catch (const std::exception&) {
    lose();
  }
}

void TraceFile::add(const RequestEvent& event) noexcept {
  try {
    write(SpanOf::kRequest, event.method, event.begun, event.begun + event.total,
          attributesOf(event));
  } catch (const std::exception&) {
    lose();
  }
}

bool TraceFile::finish(int exitStatus) noexcept {
  try {
    write(SpanOf::kCommand, "varobinary " + command_, begun_, std::chrono::system_clock::now(),
          {{"process.exit.code", exitStatus}});
  } catch (const std::exception&) {
    lose();
  }
  const MutexLock lock(mutex_);
  return isComplete_;
}

void TraceFile::lose() noexcept {
  const MutexLock lock(mutex_);
  isComplete_ = false;
}

void TraceFile::write(SpanOf what, const std::string& name, Time begun, Time ended,
                      const Dictionary& attributes) {
  constexpr std::uint64_t kCommandSpan = 1;
  const MutexLock lock(mutex_);
  const bool isCommand = what == SpanOf::kCommand;
  Dictionary span{{"traceId", trace_},
                  {"spanId", idOf(isCommand ? kCommandSpan : kCommandSpan + ++requests_)},
                  {"parentSpanId", isCommand ? std::string() : idOf(kCommandSpan)},
                  {"name", name},
                  {"startTimeUnixNano", unixNano(begun)},
                  {"endTimeUnixNano", unixNano(ended)},
                  {"attributes", attributes}};
  const std::string line = platform::json::text(span) + "\n";
  if (!file_->writeAt(size_, line)) isComplete_ = false;
  size_ += line.size();
}

}  // namespace varo::cli
