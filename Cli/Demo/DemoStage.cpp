#include "Cli/Demo/DemoStage.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Failures/FailureText.h"
#include "Cli/Terminal/TerminalText.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <utility>

namespace varo::cli {

using platform::Dictionary;

DemoStage::DemoStage(Session& session, sandbox::SandboxServer& sandbox, std::string directory)
    : session_(session), sandbox_(sandbox), directory_(std::move(directory)) {}

std::string DemoStage::url() const { return sandbox_.url(); }

Dictionary DemoStage::headers() { return {{binary::kVaroAuthorization, kToken}}; }

void DemoStage::beginSection(const std::string& title, const std::string& explanation) {
  section_ = title;
  session_.output().event("section", {{"title", title}},
                          [&] { return fmt::format("\n{}\n{}\n", title, explanation); });
}

Outcome DemoStage::operate(const std::string& activity, const Session::Start& start) {
  session_.output().begin(activity);
  const auto begin = std::chrono::steady_clock::now();
  Outcome outcome = session_.await(start);
  lastDuration_ = std::chrono::duration_cast<std::chrono::milliseconds>(
      std::chrono::steady_clock::now() - begin);
  return outcome;
}

void DemoStage::record(bool ok, const std::string& what, const std::string& detail,
                       std::uint64_t bytes) {
  if (interrupted()) return;  // what an interrupt broke off has not failed
  steps_.push_back({section_, what, ok, bytes, std::exchange(lastDuration_, {})});
  session_.output().event("step", {{"what", what}, {"ok", ok}, {"detail", detail}}, [&] {
    return fmt::format("  {}  {:<46}  {}\n", ok ? "ok    " : "FAILED", what, printable(detail));
  });
}

std::optional<Dictionary> DemoStage::expectSuccess(const Outcome& outcome,
                                                   const std::string& what) {
  if (outcome.kind == Outcome::Kind::kSuccess) return outcome.value.dictionaryValue();
  record(false, what, describeFailure(outcome.value).message);
  return std::nullopt;
}

}  // namespace varo::cli
