#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Failures/CommandErrors.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/TemporaryDirectory.h"
#include "Platform/Foundation/Error.h"
#include "Sandbox/Blobs/ExampleDatabase.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

namespace varo::cli {

namespace {

constexpr std::string_view kHelp =
    R"(Run a complete local back end: an object service, a blob service, templates of online
transfers, and an object store that checks signatures (AWS Signature Version 4).

Usage: varobinary [GLOBAL] sandbox [--port N] [--store-port N] [--data DIR]
           [--example-db FILE] [--token-required T] [--listen ADDRESS]
           [--object-store URL] [--access-key K] [--secret-key-file FILE] [--region R]
           [--allow-unsigned]

  --port N                port of the object and blob services (default: any free one)
  --store-port N          port of the object store (default: any free one)
  --data DIR              keep records and bytes in DIR and serve what is there already
                          (default: a temporary directory, removed at the end)
  --example-db FILE       make an SQLite database in FILE with a table of employees whose
                          photos the blob service has; one made before is used again
  --token-required T      refuse requests that do not carry the token T
  --listen ADDRESS        address to listen on (default 127.0.0.1, this machine only).
                          The sandbox is no server for others: mind who can reach it
  --object-store URL      templates point at this S3-compatible store instead of the
                          sandbox's own: scheme, host and port. Where a bucket stands in the
                          path, names of objects begin with it
  --access-key K          access key of the store (default: sandbox)
  --secret-key-file FILE  take its secret from the first line of FILE; default: the variable
                          VARO_SECRET_KEY, or sandbox-secret-key for the sandbox's own store
  --secret-key S          the secret. Other users of this machine can see it in the list of
                          processes
  --region R              region of the store (default us-east-1)
  --allow-unsigned        the sandbox's own store takes requests without a signature, too

Prints one line when it accepts connections, and runs until it is interrupted (Ctrl-C).
With --json the line is {"event":"ready","url":...,"blobUrl":...,"templateUrl":...,
"storeUrl":...}.

Examples:
  varobinary sandbox --port 8080
  varobinary sandbox --data ./back-end --token-required secret
  varobinary sandbox --example-db try/Library/WEBSQLDIRECTORY/staff.db
  varobinary sandbox --object-store https://s3.example.com --access-key K --secret-key-file s
)";

struct SandboxCommandOptions {
  /// 0: any free one.
  std::uint16_t port = 0;
  std::uint16_t storePort = 0;
  /// Where records and bytes are kept; empty: a temporary directory that goes with the sandbox.
  std::string dataDirectory;
  std::string address = "127.0.0.1";
  /// Where to make an example database with records whose blobs the sandbox has; empty: none.
  std::string exampleDatabase;
  /// The token that requests must carry; empty: none.
  std::string requiredToken;
  /// An S3-compatible store that templates point at; empty: the sandbox's own.
  std::string objectStore;
  /// The store's keys and region; empty: the sandbox's own ones.
  std::string accessKey;
  std::string secretKey;
  std::string region;
  /// Whether the sandbox's own store takes requests without a signature, too.
  bool allowsUnsigned = false;
};

sandbox::SignedStoreOptions storeOptions(const SandboxCommandOptions& options) {
  sandbox::SignedStoreOptions store;
  store.outsideUrl = options.objectStore;
  if (!options.accessKey.empty()) store.accessKey = options.accessKey;
  if (!options.secretKey.empty()) store.secretKey = options.secretKey;
  if (!options.region.empty()) store.region = options.region;
  store.requiresSignature = !options.allowsUnsigned;
  return store;
}

/// How to bring the photos of the example database down, where a home directory has it in the place
/// for databases.
std::string blobInstructions(const std::string& command, const std::string& database,
                             const std::string& blobUrl) {
  using sandbox::ExampleDatabase;
  const std::filesystem::path path(database);
  const std::filesystem::path library = path.parent_path().parent_path();
  if (path.parent_path().filename() != "WEBSQLDIRECTORY" || library.filename() != "Library") {
    return {};
  }
  const std::string home = library.parent_path();
  return fmt::format(
      "\n"
      "  echo '{{\"URL\":\"{}\",\"ScopeName\":\"{}\",\"ObjectName\":\"{}\"}}' > photo.json\n"
      "  {} --home {} blob download --db {} --table {} --column {} --key id=3 --config "
      "photo.json\n",
      blobUrl, ExampleDatabase::kScope, ExampleDatabase::kTable, command, home.empty() ? "." : home,
      path.filename().string(), ExampleDatabase::kTable, ExampleDatabase::kPhotoColumn);
}

std::string instructions(const sandbox::SandboxServer& server, const SandboxCommandOptions& options,
                         const std::string& program) {
  const std::string command =
      (options.requiredToken.empty() ? "" : "VARO_TOKEN='the token' ") + program;
  const std::string data =
      options.dataDirectory.empty() ? "temporary, removed at the end" : options.dataDirectory;
  const std::string example =
      options.exampleDatabase.empty()
          ? ""
          : fmt::format("  example       {}: table {}, column {}\n", options.exampleDatabase,
                        sandbox::ExampleDatabase::kTable, sandbox::ExampleDatabase::kPhotoColumn);
  return fmt::format(
      "  blob service  {4}\n"
      "  templates     {7}\n"
      "  object store  {1}\n"
      "  data          {2}\n"
      "{5}"
      "\n"
      "Try, in another terminal:\n"
      "  URL={0}\n"
      "  {3} upload $URL FILE\n"
      "  {3} list $URL\n"
      "  {3} download $URL FILE_ID\n"
      "{6}"
      "\n"
      "Ctrl-C stops it.",
      server.url(), server.storeUrl(), data, command, server.blobUrl(), example,
      blobInstructions(command, options.exampleDatabase, server.blobUrl()), server.templateUrl());
}

/// Takes the store's secret from the environment where no option gives it.
void completeStore(SandboxCommandOptions& options) {
  const char* variable = std::getenv("VARO_SECRET_KEY");
  if (options.secretKey.empty() && variable != nullptr) options.secretKey = variable;
  const bool hasKeys = !options.accessKey.empty() && !options.secretKey.empty();
  // The sandbox's own keys open nothing elsewhere.
  if (!options.objectStore.empty() && !hasKeys) {
    CommandArguments::reject(
        "--object-store",
        "needs --access-key, and the secret from --secret-key-file, VARO_SECRET_KEY or "
        "--secret-key");
  }
}

void declare(CommandArguments& arguments, SandboxCommandOptions& options) {
  arguments.parsed("--port", options.port, parsePort);
  arguments.parsed("--store-port", options.storePort, parsePort);
  arguments.text("--data", options.dataDirectory);
  arguments.text("--example-db", options.exampleDatabase);
  arguments.text("--token-required", options.requiredToken);
  arguments.text("--listen", options.address);
  arguments.parsed("--object-store", options.objectStore, parseStoreUrl);
  arguments.text("--access-key", options.accessKey);
  arguments.text("--secret-key", options.secretKey);
  arguments.parsed("--secret-key-file", options.secretKey,
                   [](const std::string& path) { return readSecretFile(path, "secret key"); });
  arguments.exclude("--secret-key-file", "--secret-key");
  arguments.text("--region", options.region);
  arguments.flag("--allow-unsigned", options.allowsUnsigned);
  arguments.check([&options] { completeStore(options); });
}

int run(Session& session, const SandboxCommandOptions& options) {
  std::optional<TemporaryDirectory> temporary;
  sandbox::SandboxOptions settings;
  settings.dataDirectory = options.dataDirectory;
  if (options.dataDirectory.empty()) {
    auto made = TemporaryDirectory::make();
    if (!made) return session.finish({Outcome::Kind::kFailure, made.error()});
    temporary = std::move(made).value();
    settings.dataDirectory = temporary->path();
  }
  settings.address = options.address;
  settings.port = options.port;
  settings.storePort = options.storePort;
  settings.requiredToken = options.requiredToken;
  settings.objectStore = storeOptions(options);

  sandbox::SandboxServer server(settings);
  auto error = server.start();
  if (!error && !options.exampleDatabase.empty()) {
    error = server.makeExampleDatabase(options.exampleDatabase);
  }
  if (error) {
    const platform::ErrorPtr failure =
        platform::Error::make(kSandboxErrorDomain, kCodeSandboxFailed, error->message);
    return session.finish({Outcome::Kind::kFailure, failure});
  }
  session.output().event("ready",
                         {{"url", server.url()},
                          {"blobUrl", server.blobUrl()},
                          {"templateUrl", server.templateUrl()},
                          {"storeUrl", server.storeUrl()}},
                         [&] { return fmt::format("Sandbox ready at {}\n", server.url()); });
  session.output().note(instructions(server, options, session.options().program));
  if (server.isReachableFromOutside()) {
    session.output().warning(
        "other machines can reach this sandbox. It is for trying things out, not for "
        "serving others.");
  }
  session.waitForInterrupt();
  return Interrupts::kExitStatus;
}

}  // namespace

/// Runs a sandbox until the user interrupts it.
Command makeSandboxCommand() {
  return {.name = "sandbox",
          .arguments = {},
          .summary = "run a complete local back end to try things on",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
