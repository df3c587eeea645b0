#include "Cli/Commands/Checkup.h"

#include "Cli/Failures/ClientFailure.h"
#include "Cli/Failures/CommandErrors.h"
#include "Cli/Terminal/TerminalText.h"

#include <fmt/format.h>

#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

std::string lineOf(std::string_view step, const Value& isGood, const std::string& found,
                   const std::string& advice) {
  const std::string_view mark = isGood.isMissing() ? "-" : isGood.boolValue() ? "ok" : "WRONG";
  std::string line = fmt::format("{:<6} {:<14} {}\n", mark, step, printable(found));
  if (!advice.empty()) line += fmt::format("{:<21} {}\n", "", printable(advice));
  return line;
}

}  // namespace

FailureText problem(Kind kind, std::string message, std::string hint) {
  FailureText text;
  text.message = std::move(message);
  text.hint = std::move(hint);
  text.facts.kind = nameOf(kind);
  return text;
}

void Checkup::tell(std::string_view step, const Value& isGood, const std::string& found,
                   const std::string& advice) {
  Dictionary details{{"step", std::string(step)}, {"found", found}};
  if (isGood.isPresent()) details.set("ok", isGood);
  if (!advice.empty()) details.set("advice", advice);
  session_.output().event("check", details, [&] { return lineOf(step, isGood, found, advice); });
}

void Checkup::good(std::string_view step, const std::string& found) {
  ++good_;
  tell(step, true, found, {});
}

void Checkup::wrong(std::string_view step, const FailureText& failure) {
  if (wrong_.empty()) kind_ = failure.facts.kind;
  isRetryable_ = isRetryable_ && failure.facts.isRetryable;
  wrong_.emplace_back(step);
  tell(step, false, failure.message, failure.hint);
}

void Checkup::notTried(std::string_view step, const std::string& why) { tell(step, {}, why, {}); }

int Checkup::finish() {
  if (isGood()) {
    return session_.finish(
        {Outcome::Kind::kSuccess, Dictionary{{"checks", static_cast<std::int64_t>(good_)}}},
        {.success = [](const Dictionary&) { return "Everything that was tried works.\n"; }});
  }
  const std::string message = fmt::format("something is wrong with: {}", fmt::join(wrong_, ", "));
  return session_.finish(
      {Outcome::Kind::kFailure, commandError(kCodeCheckFailed, message, kind_, isRetryable_)},
      {.failure = describeWithoutHint});
}

}  // namespace varo::cli
