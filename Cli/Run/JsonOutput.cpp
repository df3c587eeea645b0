#include "Cli/Run/JsonOutput.h"

#include "Cli/Run/JsonEvents.h"

#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

/// As `eventLine` writes `unexpectedFailure`.
constexpr std::string_view kFixedFailure =
    R"({"event":"failure","error":{"domain":"CommandLine","code":3,"userInfo":)"
    R"({"NSLocalizedDescription":"the command was broken off: there was no memory left, or )"
    R"(something unexpected happened"}},"kind":"other","message":"the command was broken off: there )"
    R"(was no memory left, or something unexpected happened","retryable":false})"
    "\n";

/// What failures of commands and of items have beside the event's name.
Dictionary failureDetails(const Value& error, const Explain& explain) {
  const FailureText text = explain(error);
  Dictionary details{{"error", jsonForm(error)},
                     {"kind", text.facts.kind},
                     {"message", text.message},
                     {"retryable", text.facts.isRetryable}};
  if (text.facts.httpStatus) details.set("httpStatus", *text.facts.httpStatus);
  if (text.facts.retryAfter) details.set("retryAfter", text.facts.retryAfter->count());
  return details;
}

}  // namespace

void JsonOutput::writeFixedFailure(std::ostream& stream) { stream << kFixedFailure << std::flush; }

void JsonOutput::writeLine(std::string_view event, const Dictionary& details) {
  // A script reads along, so no line may wait in the buffer.
  stream_ << eventLine(event, details) << '\n' << std::flush;
}

void JsonOutput::writeProgress(const Value& progress) {
  writeLine("progress", progress.dictionaryValue());
}

void JsonOutput::writeStarted(const std::string& id) { writeLine("started", {{"id", id}}); }

void JsonOutput::writeChunk(const std::string& id, std::int64_t bytesWritten,
                            std::int64_t totalSize) {
  writeLine("chunk", {{"id", id}, {"bytesWritten", bytesWritten}, {"totalSize", totalSize}});
}

void JsonOutput::writeEvent(const std::string& name, const Dictionary& details, const HumanText&) {
  writeLine(name, details);
}

// A missing value has no entry in a dictionary, so it is said as null: the key is always there.
void JsonOutput::writeSuccess(const Value& result, const HumanText&) {
  writeLine("success", {{"result", jsonForm(result)}});
}

void JsonOutput::writeFailure(const Value& error, const Explain& explain) {
  writeLine("failure", failureDetails(error, explain));
}

void JsonOutput::writeItemProgress(const Item& item, std::uint64_t done, std::uint64_t total) {
  Dictionary details = item.identity;
  details.set("bytes", static_cast<std::int64_t>(done));
  details.set("totalSize", static_cast<std::int64_t>(total));
  writeLine("itemProgress", details);
}

void JsonOutput::writeItemSucceeded(const Item& item, const Value& result, const HumanText&) {
  Dictionary details = item.identity;
  details.set("result", jsonForm(result));
  writeLine("itemSuccess", details);
}

void JsonOutput::writeItemFailed(const Item& item, const Value& error, const Explain& explain) {
  Dictionary details = item.identity;
  details.addEntries(failureDetails(error, explain));
  writeLine("itemFailure", details);
}

void JsonOutput::writePaused(const Dictionary& state, const HumanText&) {
  writeLine("paused", {{"id", jsonForm(state["id"])}, {"result", jsonForm(state["result"])}});
}

}  // namespace varo::cli
