#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Demo/DemoSections.h"
#include "Cli/Demo/DemoStage.h"
#include "Cli/Failures/CommandErrors.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/TemporaryDirectory.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/Table.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <algorithm>
#include <filesystem>
#include <utility>
#include <vector>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;

namespace {

constexpr std::string_view kHelp =
    R"(Take a tour with real files: uploads of every kind, lists, metadata, downloads, deletes,
offline blobs of a real SQLite database, and signed transfers with an object store.

Usage: varobinary [GLOBAL] demo

Starts a sandbox of its own in a temporary directory, does everything that the library
does and checks each result, downloads byte by byte. It ends with a table of what was done,
removes what it made, and needs some seconds. The exit status is not 0 if anything was
wrong.

Examples:
  varobinary demo
  varobinary --log-level debug demo
)";

struct DemoOptions {};

using Section = void (*)(DemoStage&);
constexpr Section kSections[] = {showUploads,  showLists,   showUpdates,      showDownloads,
                                 showFailures, showDeletes, showOfflineBlobs, showSignedTransfers};

Outcome failed(ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

/// The sums of one section.
struct Account {
  std::string section;
  std::size_t steps = 0;
  std::size_t ok = 0;
  std::uint64_t bytes = 0;
  std::chrono::milliseconds moving{0};  // time of the steps that moved bytes
};

std::vector<Account> accountsOf(const std::vector<DemoStage::Step>& steps) {
  std::vector<Account> accounts;
  for (const DemoStage::Step& step : steps) {
    if (accounts.empty() || accounts.back().section != step.section) {
      accounts.push_back({step.section, 0, 0, 0, {}});
    }
    Account& account = accounts.back();
    ++account.steps;
    account.ok += step.ok ? 1 : 0;
    account.bytes += step.bytes;
    if (step.bytes > 0) account.moving += step.duration;
  }
  return accounts;
}

std::string summaryOf(const std::vector<DemoStage::Step>& steps) {
  using Align = Table::Align;
  Table table({{"SECTION"},
               {"STEPS", Align::kRight, false},
               {"OK", Align::kRight, false},
               {"BYTES", Align::kRight, false},
               {"RATE", Align::kRight, false}});
  for (const Account& account : accountsOf(steps)) {
    const double seconds = std::chrono::duration<double>(account.moving).count();
    const bool moved = account.bytes > 0;
    table.addRow(
        {account.section, std::to_string(account.steps), std::to_string(account.ok),
         moved ? formatBytes(account.bytes) : "",
         moved && seconds > 0 ? formatRate(static_cast<double>(account.bytes) / seconds) : ""});
  }
  return "\nSummary\n" + table.text(std::nullopt);
}

int conclude(Session& session, const DemoStage& stage) {
  if (stage.interrupted()) return session.finish({Outcome::Kind::kInterrupted, {}});
  const auto& steps = stage.steps();
  const auto wrong = static_cast<std::size_t>(
      std::count_if(steps.begin(), steps.end(), [](const auto& step) { return !step.ok; }));
  if (wrong > 0 || steps.empty()) {
    session.output().event("summary", {}, [&] { return summaryOf(steps); });
    return session.finish(failed(
        platform::Error::make(kDemoErrorDomain, kCodeStepsWentWrong,
                              fmt::format("{} of {} steps went wrong", wrong, steps.size()))));
  }
  const Dictionary result{{"steps", steps.size()}};
  const auto describe = [&](const Dictionary&) {
    return summaryOf(steps) + "\nEverything is as it should be.\n";
  };
  return session.finish({Outcome::Kind::kSuccess, result}, {.success = describe});
}

/// Sets up what a process has one of for the tour, and puts it back.
class TourSettings {
 public:
  explicit TourSettings(const std::string& home) : policyBefore_(binary::transferPolicy()) {
    platform::UserDirectories::install(platform::UserDirectories::below(home));
    binary::setTransferPolicy(binary::TransferPolicy::kSafe);
  }
  ~TourSettings() {
    // What an interrupt left under way would go on in the user's own directories.
    platform::Runtime::shared().shutdown();
    binary::setTransferPolicy(policyBefore_);
    platform::UserDirectories::install(nullptr);
  }
  TourSettings(const TourSettings&) = delete;
  TourSettings& operator=(const TourSettings&) = delete;

 private:
  const binary::TransferPolicy policyBefore_;
};

void declare(CommandArguments&, DemoOptions&) {}

int run(Session& session, const DemoOptions&) {
  const auto directory = TemporaryDirectory::make();
  if (!directory) return session.finish(failed(directory.error()));
  const std::string& root = directory->path();

  sandbox::SandboxOptions settings;
  settings.dataDirectory = root + "/sandbox";
  settings.requiredToken = DemoStage::kToken;
  sandbox::SandboxServer server(settings);
  if (const auto error = server.start()) {
    return session.finish(
        failed(platform::Error::make(kDemoErrorDomain, kCodeDemoNotStarted, error->message)));
  }
  DemoStage stage(session, server, root);
  std::error_code made;
  std::filesystem::create_directories(stage.downloads(), made);
  const TourSettings tour(root + "/home");

  session.output().event("ready", {{"url", server.url()}, {"storeUrl", server.storeUrl()}}, [&] {
    return fmt::format(
        "A tour of VaroBinary with real files. A back end runs in this process, on loopback:\n"
        "  object service  {}\n  object store    {}\n",
        server.url(), server.storeUrl());
  });
  for (const Section section : kSections) {
    if (!stage.interrupted()) section(stage);
  }
  return conclude(session, stage);
}

}  // namespace

/// Takes the user through what the library does, against a sandbox of its own. The exit status is 0
/// only if everything was as it should be.
Command makeDemoCommand() {
  return {.name = "demo",
          .arguments = {},
          .summary = "see everything at work, with real files",
          .help = std::string(kHelp),
          .define = definition(declare, run),
          // The tour provokes failures and reports them itself.
          .leastLogLevel = platform::LogLevel::kOff};
}

}  // namespace varo::cli
