#include "Cli/Commands/SandboxCommand.h"

#include "Cli/Run/Session.h"
#include "Cli/Run/TemporaryDirectory.h"
#include "Platform/Foundation/Error.h"
#include "Sandbox/ExampleDatabase.h"
#include "Sandbox/SandboxServer.h"

#include <fmt/format.h>

#include <cerrno>
#include <filesystem>
#include <optional>

namespace varo::cli {

namespace {

constexpr std::string_view kErrorDomain = "Sandbox";
sandbox::ObjectStoreOptions storeOptions(const SandboxCommandOptions& options) {
  sandbox::ObjectStoreOptions store;
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

std::string instructions(const sandbox::SandboxServer& server,
                         const SandboxCommandOptions& options) {
  // As the user called it, so that the lines can be copied.
  const std::string command = (options.requiredToken.empty() ? "" : "VARO_TOKEN='the token' ") +
                              std::string(::program_invocation_name);
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

}  // namespace

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
    error = sandbox::ExampleDatabase::make(options.exampleDatabase, server);
  }
  if (error) {
    const platform::ErrorPtr failure = platform::Error::make(kErrorDomain, 1, error->message);
    return session.finish({Outcome::Kind::kFailure, failure});
  }
  session.output().event("ready",
                         {{"url", server.url()},
                          {"blobUrl", server.blobUrl()},
                          {"templateUrl", server.templateUrl()},
                          {"storeUrl", server.storeUrl()}},
                         [&] { return fmt::format("Sandbox ready at {}\n", server.url()); });
  session.output().note(instructions(server, options));
  if (server.isReachableFromOutside()) {
    session.output().note(
        "warning: other machines can reach this sandbox. It is for trying things out, not for "
        "serving others.");
  }
  session.waitForInterrupt();
  return Interrupts::kExitStatus;
}

}  // namespace varo::cli
