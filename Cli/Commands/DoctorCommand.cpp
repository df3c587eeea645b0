#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Arguments/StoreArguments.h"
#include "Cli/Commands/Checkup.h"
#include "Cli/Commands/ServiceChecks.h"
#include "Cli/Commands/StoreRequest.h"
#include "Platform/Foundation/Error.h"

#include <fmt/format.h>

#include <optional>
#include <string>
#include <utility>

namespace varo::cli {

using platform::Dictionary;

namespace {

constexpr std::string_view kHelp =
    R"(Check a configuration step by step, and say what is wrong and what to do about it.

Usage: varobinary [GLOBAL] doctor URL
       varobinary [GLOBAL] doctor --config FILE
       varobinary [GLOBAL] doctor s3://BUCKET [--endpoint URL] [--region R]
           [--access-key K] [--secret-key-file FILE]

  TARGET                  base URL of an object service, or s3://BUCKET
  --config FILE           configuration of blob downloads, object downloads or object uploads
  --endpoint URL          of s3://: scheme, host and port of the store (default:
                          VARO_ENDPOINT)
  --region R              region of the store (default: VARO_REGION, or us-east-1)
  --access-key K          access key (default: VARO_ACCESS_KEY; none: nothing is signed)
  --secret-key-file FILE  take its secret from the first line of FILE (default:
                          VARO_SECRET_KEY; a session token comes from VARO_SESSION_TOKEN)

The steps are the name of the server, the connection (and the proxy), TLS, the service, the
token or the keys, the template of an upload, the store, and the clock. It goes with the same
options as all commands, changes nothing on the service, and stops where the next step cannot
work. Requests are not repeated unless --retry says so. The exit status is 0 where all that it
tried works, else 1.

Examples:
  varobinary doctor $URL
  varobinary doctor s3://photos --endpoint https://s3.example.com --cacert ca.pem
  varobinary --json doctor --config put.json | jq -r 'select(.ok == false) | .found'
)";

struct DoctorOptions {
  /// A URL or the address of a bucket; none: the configuration.
  std::optional<std::string> target;
  std::optional<Dictionary> config;
  StoreArguments store;

  [[nodiscard]] bool isStore() const { return target && target->starts_with("s3://"); }
};

void declare(CommandArguments& arguments, DoctorOptions& options) {
  arguments.text("TARGET", options.target);
  declareStoreOptions(arguments, options.store);
  arguments.parsed("--config", options.config, readJsonFile);
  arguments.check([&options] {
    if (options.target.has_value() == options.config.has_value()) {
      CommandArguments::reject("doctor", "one of URL, s3://BUCKET and --config is required");
    }
    if (!options.isStore()) return;
    auto address = parseStoreAddress(*options.target);
    if (!address) CommandArguments::reject("TARGET", address.error()->localizedDescription());
    options.store.address = std::move(address).value();
    completeStore("doctor", options.store, NeedsKey::kNo);
  });
}

int run(Session& session, const DoctorOptions& options) {
  Checkup checkup(session);
  if (options.isStore()) {
    checkStore(session, checkup, options.store);
  } else if (options.target) {
    checkFileService(session, checkup, parseBaseUrl(*options.target).value());
  } else if (options.config->contains(binary::kScopeName)) {
    checkBlobService(session, checkup, *options.config);
  } else if (options.config->contains(binary::kURL)) {
    checkTemplates(session, checkup, *options.config);
  } else {
    checkObjectSource(session, checkup, *options.config);
  }
  if (session.interrupts().raised()) return session.finish({Outcome::Kind::kInterrupted, {}});
  return checkup.finish();
}

}  // namespace

/// Checks a configuration step by step.
Command makeDoctorCommand() {
  return {.name = "doctor",
          .arguments = "URL | s3://BUCKET",
          .summary = "check a configuration step by step",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
