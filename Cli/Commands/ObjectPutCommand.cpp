#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Commands/ObjectRequest.h"
#include "Cli/Commands/StoreRequest.h"
#include "Cli/Failures/ObjectFailure.h"
#include "Cli/Run/ReceiveMeter.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/StandardInput.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace varo::cli {

using binary::OnlineBinaryUploadManager;
using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(Send a file to a store, or to where a template of a service says.

Usage: varobinary [GLOBAL] object put s3://BUCKET/KEY --file PATH [--endpoint URL]
           [--region R] [--access-key K] [--secret-key-file FILE]
           [--content-type TYPE] [--part-size BYTES]
       varobinary [GLOBAL] object put --config FILE [--file PATH] [--options FILE]

{}  --content-type TYPE     of the object (default application/octet-stream)
  --part-size BYTES       what is larger is sent in parts of this size, several at once, such
                          as 8M (default 8 MiB; at least 5 MiB)
  --config FILE           without ADDRESS: JSON object with the configuration of the upload, as the library
                          takes it: "URL" (who answers with the template), "FilePath",
                          "headers" of that request (--header wins over them), and
                          "uploadParams", which are posted to it, fill the template and hold
                          the keys of the signature
  --file PATH             the file, or '-' for standard input (which is first copied to a
                          temporary file); in place of "FilePath". A template's service takes
                          no empty file, a store does
  --options FILE          JSON object with the options dictionary. --option and the token
                          win over it

A KEY that is empty or ends in a slash gets the name of the file behind it.

The token of --token goes with a transfer that is not signed. To the service that has the
templates it goes with --header, or in "headers".

Examples, in a shell where 'varobinary sandbox --port 8080' runs in another:
  echo '{{"URL":"http://127.0.0.1:8080/services/online/templates",
         "uploadParams":{{"objectName":"photos/ann.jpg","regionName":"us-east-1",
         "accessKeyID":"sandbox","secretAccessKey":"sandbox-secret-key"}}}}' > put.json
  varobinary object put --config put.json --file ann.jpg
)";

struct ObjectPutOptions {
  /// A store that is addressed directly, in place of the configuration.
  StoreArguments store;
  std::optional<std::string> contentType;
  std::optional<std::int64_t> partSize;
  /// The configuration as the library takes it.
  std::optional<platform::Dictionary> config;
  /// Stands in for the configuration's "FilePath".
  std::optional<std::string> file;
  /// The options dictionary, before the entries of the command line.
  platform::Dictionary options;
};

constexpr std::string_view kStandardInput = "-";
/// Bytes of a service's response that people see.
constexpr std::size_t kLongestAnswer = 300;

Dictionary configurationOf(const Session& session, const ObjectPutOptions& options,
                           const std::optional<InputCopy>& copy) {
  Dictionary config = objectConfiguration(session.options(), *options.config);
  if (options.file) config.set(binary::kFilePath, copy ? copy->path() : *options.file);
  return config;
}

std::string describe(const std::string& path, const Dictionary& result) {
  std::error_code unknown;
  const std::uintmax_t size = std::filesystem::file_size(path, unknown);
  const std::string answer = result[binary::upload::kFileDetails].textValue();
  return fmt::format(
      "Uploaded {}{}\n{}", printable(path), unknown ? "" : fmt::format(" ({})", formatBytes(size)),
      answer.empty()
          ? ""
          : fmt::format("Response: {}\n", printable(platform::utf8Prefix(answer, kLongestAnswer))));
}

void declare(CommandArguments& arguments, ObjectPutOptions& options) {
  declareStore(arguments, options.store, Presence::kOptional);
  arguments.text("--content-type", options.contentType);
  arguments.parsed("--part-size", options.partSize, parsePartSize);
  arguments.parsed("--config", options.config, readJsonFile);
  arguments.text("--file", options.file);
  arguments.parsed("--options", options.options, readJsonFile);
  arguments.check([&options] {
    if (options.store.isGiven() == options.config.has_value()) {
      CommandArguments::reject("object put", "either s3://BUCKET/KEY or --config is required");
    }
    if (options.config) return;
    if (!options.file) CommandArguments::reject("object put", "--file is required");
    const bool isNamed = options.file != kStandardInput;
    completeStore("object put", options.store, isNamed ? NeedsKey::kNo : NeedsKey::kYes);
  });
}

int run(Session& session, const ObjectPutOptions& options) {
  if (options.store.isGiven()) {
    return putToStore(session, options.store,
                      {*options.file, options.contentType, options.partSize});
  }
  std::optional<InputCopy> copy;
  if (options.file == kStandardInput) {
    auto made = InputCopy::make(STDIN_FILENO, session.interrupts());
    if (session.interrupts().raised()) return session.finish({Outcome::Kind::kInterrupted, {}});
    if (!made) return session.finish({Outcome::Kind::kFailure, made.error()});
    copy = std::move(made).value();
  }
  const Dictionary config = configurationOf(session, options, copy);
  const std::string path = copy ? "standard input" : config[binary::kFilePath].textValue();
  Output& output = session.output();
  output.begin(path.empty() ? "object"
                            : printable(std::filesystem::path(path).filename().string()));
  const auto settings = session.settings();
  const auto count = std::make_shared<ByteCount>();
  std::error_code unknown;
  const std::uintmax_t size =
      std::filesystem::file_size(config[binary::kFilePath].textValue(), unknown);
  if (!unknown) count->total = size;
  // Of each request; that for the template is small.
  settings->onSent = [count](std::uint64_t sent) { count->done = sent; };
  const auto tick = [&] { output.moved(count->done, count->total); };
  const auto start = [&](const Session::Blocks& blocks) {
    OnlineBinaryUploadManager::sharedInstance()->createAndStartOnlineUploadTaskFor(
        config, [&output](const std::string& id, const Value&) { output.started(id); }, {},
        blocks.guarded(
            [blocks](const std::string& id, const std::string& details, const Value& params) {
              blocks.onSuccess(
                  Dictionary{{"id", id},
                             {binary::upload::kFileDetails, details},
                             {binary::keys::kUploadParams,
                              platform::withoutSecrets(params, platform::SearchTexts::kNo)}});
            }),
        // One that an interrupt leaves under way has the copy as long as it has its blocks.
        blocks.guarded([blocks, copy](const std::string&, const Value& error, const Value&) {
          blocks.onFailure(error);
        }),
        objectOptions(session, options.options, settings));
  };
  return session.finish(
      session.await(start, {}, Session::Ending::kIsTold, tick),
      {.success = [&](const Dictionary& result) { return describe(path, result); },
       .failure = describeObjectFailure,
       .about = {path, config["URL"].textValue()}});
}

}  // namespace

/// Uploads one object as a template says that it is asked for.
Command makeObjectPutCommand() {
  return {.name = "object put",
          .arguments = {},
          .summary = "send a file to a store, or as a template of a service says",
          .help = fmt::format(kHelp, kStoreHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
