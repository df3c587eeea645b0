#include "Cli/Run/Session.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Subtasks/PollingSchedule.h"
#include "Cli/Failures/CommandErrors.h"
#include "Cli/Run/TransferWatch.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <utility>

namespace varo::cli {

using binary::OperationSettings;
using platform::Dictionary;
using platform::LogLevel;
using platform::Value;
using platform::VRONetworkUtility;
using namespace std::chrono_literals;

namespace {

/// Between two transfers of an operation there is work of milliseconds, except where a large file
/// is copied to another file system, and where the status of a delete is asked for again.
constexpr std::chrono::seconds kSilenceLimit = binary::polling::kLongestWait + 5s;

Outcome silence() {
  return {
      Outcome::Kind::kSilent,
      platform::Error::make(kCommandLineErrorDomain, kCodeSilent,
                            "the operation ended without saying how: the response of the service "
                            "was not complete. With --policy safe this is a proper error")};
}

/// `text` with what of `about` its message does not name.
FailureText naming(const std::vector<std::string>& about, FailureText text) {
  std::string missing;
  for (const std::string& name : about) {
    const bool isUrl = name.find("://") != std::string::npos;
    const std::string shown = isUrl ? platform::redactUrl(name) : name;
    if (shown.empty() || text.message.find(shown) != std::string::npos) continue;
    missing.append(missing.empty() ? "" : ", ").append(shown);
  }
  if (missing.empty()) return text;
  if (text.message.ends_with('.')) text.message.pop_back();
  text.message += fmt::format(" ({})", missing);
  return text;
}

/// Without "." and ".." and a slash at the end: people read the paths below it.
std::string absolute(const std::string& directory) {
  std::error_code failed;
  const std::filesystem::path path = std::filesystem::absolute(directory, failed);
  if (failed) return directory;
  const std::filesystem::path normal = path.lexically_normal();
  return normal.has_filename() || normal == normal.root_path() ? normal : normal.parent_path();
}

}  // namespace

Retry retryOf(const GlobalOptions& global) {
  constexpr int kUsualRetries = 3;
  const Connection& connection = global.connection;
  const bool isSafe = global.policy == binary::TransferPolicy::kSafe;
  Retry retry;
  retry.attempts = connection.retries.value_or(isSafe ? kUsualRetries : 0) + 1;
  if (connection.retryMaxTime) {
    retry.budget = *connection.retryMaxTime;
    retry.longestRetryAfter = *connection.retryMaxTime;
  }
  return retry;
}

Session::Session(GlobalOptions options, std::shared_ptr<Output> output, Interrupts& interrupts)
    : options_(std::move(options)), output_(std::move(output)), interrupts_(interrupts) {
  // At least from where the library says how it goes on with what takes a while; the sink decides
  // what of it is shown.
  const auto level = std::min(options_.logLevel.value_or(LogLevel::kWarning), LogLevel::kInfo);
  binary::BinaryLogger::sharedInstance().setLogLevel(level);
  binary::setTransferPolicy(options_.policy);
  if (!options_.home.empty()) {
    platform::UserDirectories::install(platform::UserDirectories::below(absolute(options_.home)));
  }
  // Cannot be refused: nothing was sent yet.
  (void)VRONetworkUtility::configure(networkConfiguration(options_.connection));
  // Only there may an operation end without a word; the safe policy has an error for each case.
  if (options_.policy == binary::TransferPolicy::kCompatible) {
    watch_ = std::make_shared<TransferWatch>(VRONetworkUtility::transport());
    VRONetworkUtility::setTransport(watch_);
  }
}

Session::~Session() = default;

std::shared_ptr<OperationSettings> Session::settings() const {
  const auto settings = std::make_shared<OperationSettings>();
  const Retry retry = retryOf(options_);
  if (retry.attempts == 1) return settings;
  settings->retry = {.attempts = retry.attempts,
                     .firstWait = retry.firstWait,
                     .longestWait = retry.longestWait,
                     .longestRetryAfter = retry.longestRetryAfter};
  settings->retryBudget = std::make_shared<platform::RetryBudget>(retry.budget);
  settings->onRetry = [output = output_, watch = watch_, attempts = retry.attempts](
                          int attempt, std::chrono::milliseconds wait) {
    // A wait is no silence.
    if (watch != nullptr) watch->hold();
    output->note(fmt::format("Waiting {:.1f} s for attempt {} of {}",
                             std::chrono::duration<double>(wait).count(), attempt, attempts));
  };
  settings->onWaited = [watch = watch_] {
    if (watch != nullptr) watch->release();
  };
  return settings;
}

Dictionary Session::operationOptions() const { return operationOptions(settings()); }

Dictionary Session::operationOptions(const std::shared_ptr<OperationSettings>& settings) const {
  Dictionary options = options_.options;
  options.set(binary::kOperationSettings, OperationSettings::value(settings));
  return options;
}

std::optional<Outcome> Session::checkForSilence() const {
  const bool silent = watch_ != nullptr && watch_->idleTime() > kSilenceLimit;
  return silent ? std::optional(silence()) : std::nullopt;
}

Outcome Session::await(const Start& start, const Pause& pause, Ending ending, const Tick& tick) {
  // An interrupt that came before must not start anything; `subscribe`
  // covers one that comes from now on.
  if (interrupts_.raised()) return {Outcome::Kind::kInterrupted, {}};
  using OnInterrupt = Operation::OnInterrupt;
  const auto operation =
      std::make_shared<Operation>(pause ? OnInterrupt::kTick : OnInterrupt::kEnd);
  interrupts_.subscribe(operation);
  const Blocks blocks{operation->onSuccess(), operation->onFailure(),
                      operation->onProgress([output = output_](const platform::Value& value) {
                        output->progress(value);
                      }),
                      operation->onPaused()};
  // After the subscription, so that no interrupt falls between the two.
  start(blocks);
  return operation->wait([&] {
    if (tick) tick();
    output_->tick();
    auto outcome = pause && interrupts_.raised() ? pause() : std::nullopt;
    return outcome || ending == Ending::kIsTold ? outcome : checkForSilence();
  });
}

void Session::waitForInterrupt() {
  const auto nothing = std::make_shared<Operation>();
  interrupts_.subscribe(nothing);
  // Nothing but the interrupt ends this operation.
  (void)nothing->wait([] { return std::nullopt; });
}

int Session::perform(const std::string& activity, const Start& start, const Wording& wording,
                     const Tick& tick) {
  output_->begin(activity);
  return finish(await(start, {}, Ending::kMayBeSilent, tick), wording);
}

int Session::finish(const Outcome& outcome, const Wording& wording) {
  const auto told = [&](const Describe& describe) {
    return [&] { return describe(outcome.value.dictionaryValue()); };
  };
  switch (outcome.kind) {
    case Outcome::Kind::kSuccess:
      // A result that could not be told is a failure to whoever waits for it.
      return output_->success(outcome.value, told(wording.success)) ? 0 : kExitFailure;
    case Outcome::Kind::kPaused:
      output_->paused(outcome.value.dictionaryValue(), told(wording.paused));
      return Interrupts::kExitStatus;
    case Outcome::Kind::kInterrupted:
      output_->failure(
          platform::Error::make(kCommandLineErrorDomain, kCodeInterrupted, "interrupted"));
      return Interrupts::kExitStatus;
    case Outcome::Kind::kFailure:
    case Outcome::Kind::kSilent:
      break;
  }
  output_->failure(outcome.value, [&](const Value& failure) {
    return naming(wording.about, wording.failure(failure));
  });
  return kExitFailure;
}

}  // namespace varo::cli
