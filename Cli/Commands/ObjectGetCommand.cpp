#include "Binary/Binary/BinaryDataManager/OnlineBinaryDataManager.h"
#include "Binary/Binary/DownloadTask/Chunk.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/GlobalOptions.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Arguments/OutputArguments.h"
#include "Cli/Commands/ObjectRequest.h"
#include "Cli/Commands/StoreRequest.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Failures/ObjectFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/StagedDownload.h"
#include "Cli/Run/StandardOutput.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Client/FileDestination.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace varo::cli {

using binary::Chunk;
using binary::OnlineBinaryDataManager;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(Bring an object into a file, or to standard output.

Usage: varobinary [GLOBAL] object get s3://BUCKET/KEY [--endpoint URL] [--region R]
           [--access-key K] [--secret-key-file FILE]
           [-o FILE] [--if-exists fail|replace|keep|number] [--resume]
       varobinary [GLOBAL] object get --config FILE [--param K=V]... [--options FILE]
           [-o FILE] [--if-exists fail|replace|keep|number]

{}  --config FILE           without ADDRESS: JSON object with the configuration of the download, as the library
                          takes it: "endpointUrl" (or "domain" and "relativepath"),
                          "headers", "queryParams", "ChunkSize" (bytes of a request), and for
                          a store "Auth", "AuthParameters", "method" and "Host".
                          --header wins over "headers"
  --param K=V             file parameter; may be repeated. They fill the placeholders ${{K}} of
                          the configuration; "fileId" also names the download
  --options FILE          JSON object with the options dictionary. --option and the token
                          win over it
  -o, --output FILE       store it as FILE, or write the bytes to standard output with '-',
                          as they arrive and nothing else there (excludes --json); the
                          directory of FILE must be there
  --stream                the same as -o -
  --if-exists WHAT        where the file is there already: fail (default with -o), replace
                          it, keep it and fetch nothing, or number the new one: "a (1).jpg"
  --resume                of s3://: keep what has arrived where the command fails, is
                          interrupted or killed, as hidden files beside FILE, and go on there
                          when it is run again with --resume

Without -o the file has the last part of KEY as its name in the downloads directory, or, of
--config, is downloads/SECONDS_FILEID in the documents directory, with the slashes of FILEID
as %2F. It appears complete or not at all.
A key on the command line shows in the list of processes: keep keys in the configuration.
Blanks and the like in the name of a signed object are percent-encoded: a%20b.

Examples, in a shell where 'varobinary sandbox --store-port 8081' runs in another:
  echo '{{"endpointUrl":"http://127.0.0.1:8081/${{fileId}}","Host":"127.0.0.1:8081",
         "method":"GET","Auth":"HMACDigest","AuthParameters":{{"objectName":"${{fileId}}",
         "serviceName":"s3","regionName":"us-east-1","accessKeyID":"sandbox",
         "secretAccessKey":"sandbox-secret-key"}}}}' > get.json
  varobinary object get --config get.json --param fileId=photos/ann.jpg
  varobinary object get --config get.json --param fileId=backup.tar.gz --stream | tar tz
)";

struct ObjectGetOptions {
  /// A store that is addressed directly, in place of the configuration.
  StoreArguments store;
  /// The configuration as the library takes it.
  std::optional<platform::Dictionary> config;
  /// The file parameters.
  platform::Dictionary params;
  /// The options dictionary, before the entries of the command line.
  platform::Dictionary options;
  /// Write the bytes to standard output instead of a file.
  bool stream = false;
  /// A file, or `kStandardOutput`, which is `stream`; none: in the documents directory.
  std::optional<std::string> output;
  bool resume = false;
  /// None: `kFail` for `output`, else `kReplace`.
  std::optional<IfExists> ifExists;
};

constexpr char kFileId[] = "fileId";

Outcome failed(ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

std::string nameOf(const ObjectGetOptions& options) {
  const std::string id = options.params[kFileId].textValue();
  return id.empty() ? "object" : printable(id);
}

/// Starts the download. The blocks say how it goes on.
void download(Session& session, const ObjectGetOptions& options, const Session::Blocks& blocks,
              binary::OnStreamDownloadCompleted::Function onStream) {
  Output& output = session.output();
  OnlineBinaryDataManager::sharedInstance()->createAndStartOnlineDownloadTaskFor(
      options.params, options.stream, objectConfiguration(session.options(), *options.config),
      [&output](const std::string& id, const Value&) { output.started(id); },
      [&output](const std::string& id, std::int64_t written, std::int64_t total, const Value&) {
        output.started(id);
        output.chunk(id, written, total);
      },
      std::move(onStream),
      blocks.guarded([&output, blocks](const std::string& id, const std::string& path,
                                       const Value& params) {
        output.started(id);
        blocks.onSuccess(Dictionary{
            {"id", id},
            {binary::kFilePath, path},
            {binary::kFileParams, platform::withoutSecrets(params, platform::SearchTexts::kNo)}});
      }),
      blocks.guarded([blocks](const std::string&, const ErrorPtr& error, const Value&) {
        blocks.onFailure(error);
      }),
      objectOptions(session, options.options, session.settings()));
}

std::uint64_t sizeOf(const std::string& path) {
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(path, unknown);
  return unknown ? 0 : size;
}

std::string describe(const Dictionary& result) {
  const std::string path = result[binary::kFilePath].textValue();
  return fmt::format("Downloaded {} ({})\n", printable(path), formatBytes(sizeOf(path)));
}

/// Runs the download into `staged`; the outcome names its file there.
Outcome downloadInto(Session& session, const ObjectGetOptions& options) {
  Outcome outcome =
      session.await([&](const Session::Blocks& blocks) { download(session, options, blocks, {}); },
                    {}, Session::Ending::kIsTold);
  // What an interrupt left under way would go on in the directory that goes then.
  if (outcome.kind != Outcome::Kind::kSuccess) platform::Runtime::shared().shutdown();
  return outcome;
}

Outcome published(Dictionary result, const platform::Result<std::string>& path) {
  if (!path) return failed(path.error());
  result.set(binary::kFilePath, *path);
  return {Outcome::Kind::kSuccess, std::move(result)};
}

/// Into the documents directory.
Outcome getFile(Session& session, const ObjectGetOptions& options) {
  const auto staged = StagedDownload::begin();
  if (!staged) return failed(staged.error());
  Outcome outcome = downloadInto(session, options);
  if (outcome.kind != Outcome::Kind::kSuccess) return outcome;
  const Dictionary result = outcome.value.dictionaryValue();
  return published(result, (*staged)->publish(result[binary::kFilePath].textValue()));
}

/// Into the file that -o names.
Outcome getFileTo(Session& session, const ObjectGetOptions& options, const std::string& target) {
  const auto place = detail::prepare(target, options.ifExists.value_or(IfExists::kFail));
  if (!place) return failed(errorOf(place.error()));
  if (place->kept) {
    return {Outcome::Kind::kSuccess, Dictionary{{"id", options.params[kFileId]},
                                                {binary::kFilePath, place->kept->string()}}};
  }
  const auto staged = StagedDownload::beginIn(place->directory);
  if (!staged) return failed(staged.error());
  Outcome outcome = downloadInto(session, options);
  if (outcome.kind != Outcome::Kind::kSuccess) return outcome;
  const Dictionary result = outcome.value.dictionaryValue();
  const auto bytes = (*staged)->content(result[binary::kFilePath].textValue());
  if (!bytes) return failed(bytes.error());
  return published(result, place->store(*bytes));
}

/// Writes the chunks to standard output until a write fails, which ends the operation.
class Streamer {
 public:
  Streamer(Session& session, Session::Blocks blocks)
      : output_(session.output()), interrupts_(session.interrupts()), blocks_(std::move(blocks)) {}

  /// Called for one chunk after the other.
  void take(const std::string& id, const Chunk& chunk) {
    // Chunks that were under way still come after a failure; a gap in the output would be worse
    // than an end.
    if (hasFailed_ || !chunk.data()) return;
    if (const auto written = writeBytes(STDOUT_FILENO, *chunk.data(), interrupts_); !written) {
      hasFailed_ = true;
      // An interrupt, which ends the wait for the reader, is the outcome itself.
      if (!interrupts_.raised()) blocks_.onFailure(Value(written.error()));
      return;
    }
    bytes_ += chunk.data()->size();
    output_.chunk(id, static_cast<std::int64_t>(bytes_), 0);
  }

  // To be asked when all have come.

  /// Whether some were not written.
  [[nodiscard]] bool hasFailed() const { return hasFailed_; }
  [[nodiscard]] std::uint64_t bytes() const { return bytes_; }

 private:
  Output& output_;
  const Interrupts& interrupts_;
  const Session::Blocks blocks_;

  // Of the queue that the chunks come on.
  bool hasFailed_ = false;
  std::uint64_t bytes_ = 0;
};

int stream(Session& session, const ObjectGetOptions& options) {
  std::shared_ptr<Streamer> streamer;
  Outcome outcome = session.await(
      [&](const Session::Blocks& blocks) {
        streamer = std::make_shared<Streamer>(session, blocks);
        download(session, options, blocks,
                 [streamer](const std::string& id, const std::shared_ptr<Chunk>& chunk,
                            const Value&) { streamer->take(id, *chunk); });
      },
      {}, Session::Ending::kIsTold);
  // The interrupt that cut the last chunk may be heard of later than the download's end.
  // (`take` has told nothing then.)
  if (outcome.kind == Outcome::Kind::kSuccess && streamer->hasFailed()) {
    outcome = {Outcome::Kind::kInterrupted, {}};
  }
  // Not on standard output, where nothing but the object's bytes is.
  if (outcome.kind == Outcome::Kind::kSuccess) {
    session.output().note(
        fmt::format("Wrote {} to standard output", formatBytes(streamer->bytes())));
  }
  const auto nothing = [](const Dictionary&) { return std::string(); };
  return session.finish(
      outcome, {.success = nothing, .failure = describeObjectFailure, .about = {nameOf(options)}});
}

void declare(CommandArguments& arguments, ObjectGetOptions& options) {
  declareStore(arguments, options.store, Presence::kOptional);
  arguments.parsed("--config", options.config, readJsonFile);
  arguments.pairs("--param", options.params, {.severalAtOnce = false});
  arguments.parsed("--options", options.options, readJsonFile);
  arguments.flag("--stream", options.stream);
  declareOutput(arguments, options.output, options.ifExists);
  arguments.flag("--resume", options.resume);
  arguments.check([&global = arguments.global(), &options] {
    if (options.stream && global.json) {
      CommandArguments::reject("object get", "--stream and --json exclude each other");
    }
    checkOutput(global, "object get", options.output, options.ifExists);
    if (options.stream && options.output.value_or(kStandardOutput.data()) != kStandardOutput) {
      CommandArguments::reject("object get", "--stream and -o exclude each other");
    }
    options.stream = options.stream || options.output == kStandardOutput;
    if (options.store.isGiven() == options.config.has_value()) {
      CommandArguments::reject("object get", "either s3://BUCKET/KEY or --config is required");
    }
    if (options.resume && (options.stream || !options.store.isGiven())) {
      CommandArguments::reject("object get", "--resume needs s3://BUCKET/KEY and a file");
    }
    if (options.store.isGiven()) {
      return completeStore("object get", options.store, NeedsKey::kYes);
    }
    if (options.ifExists && !options.output) {
      CommandArguments::reject("object get", "--if-exists needs -o");
    }
  });
}

int run(Session& session, const ObjectGetOptions& options) {
  if (options.store.isGiven()) {
    const std::optional<std::string> standardOutput(kStandardOutput);
    return getFromStore(session, options.store,
                        {.output = options.stream ? standardOutput : options.output,
                         .ifExists = options.ifExists.value_or(IfExists::kFail),
                         .resume = options.resume});
  }
  session.output().begin(nameOf(options));
  if (options.stream) return stream(session, options);
  const Outcome outcome =
      options.output ? getFileTo(session, options, *options.output) : getFile(session, options);
  return session.finish(
      outcome, {.success = describe, .failure = describeObjectFailure, .about = {nameOf(options)}});
}

}  // namespace

/// Downloads one object, into a file or to standard output.
Command makeObjectGetCommand() {
  return {.name = "object get",
          .arguments = {},
          .summary = "bring an object into a file, or to standard output",
          .help = fmt::format(kHelp, kStoreHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
