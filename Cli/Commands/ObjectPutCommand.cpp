#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Commands/ObjectRequest.h"
#include "Cli/Failures/ObjectFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <string>

namespace varo::cli {

using binary::OnlineBinaryUploadManager;
using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kHelp =
    R"(Send a file to where a template of the service says, signed if that asks for it.

Usage: varobinary [GLOBAL] object put --config FILE [--file PATH] [--options FILE]

  --config FILE           JSON object with the configuration of the upload, as the library
                          takes it: "URL" (who answers with the template), "FilePath",
                          "headers" of that request (--header wins over them), and
                          "uploadParams", which are posted to it, fill the template and hold
                          the keys of the signature
  --file PATH             the file, in place of "FilePath". It must not be empty
  --options FILE          JSON object with the options dictionary. --option and the token
                          win over it

The token of --token goes with a transfer that is not signed. To the service that has the
templates it goes with --header, or in "headers".

Examples, in a shell where 'varobinary sandbox --port 8080' runs in another:
  echo '{"URL":"http://127.0.0.1:8080/services/online/templates",
         "uploadParams":{"objectName":"photos/ann.jpg","regionName":"us-east-1",
         "accessKeyID":"sandbox","secretAccessKey":"sandbox-secret-key"}}' > put.json
  varobinary object put --config put.json --file ann.jpg
)";

struct ObjectPutOptions {
  /// The configuration as the library takes it.
  platform::Dictionary config;
  /// Stands in for the configuration's "FilePath".
  std::optional<std::string> file;
  /// The options dictionary, before the entries of the command line.
  platform::Dictionary options;
};

/// Bytes of a service's response that people see.
constexpr std::size_t kLongestAnswer = 300;

Dictionary configurationOf(const Session& session, const ObjectPutOptions& options) {
  Dictionary config = objectConfiguration(session.options(), options.config);
  if (options.file) config.set(binary::kFilePath, *options.file);
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
  arguments.parsed("--config", options.config, readJsonFile, Presence::kRequired);
  arguments.text("--file", options.file);
  arguments.parsed("--options", options.options, readJsonFile);
}

int run(Session& session, const ObjectPutOptions& options) {
  const Dictionary config = configurationOf(session, options);
  const std::string path = config[binary::kFilePath].textValue();
  Output& output = session.output();
  output.begin(path.empty() ? "object"
                            : printable(std::filesystem::path(path).filename().string()));
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
        blocks.guarded([blocks](const std::string&, const Value& error, const Value&) {
          blocks.onFailure(error);
        }),
        objectOptions(session.options(), options.options));
  };
  return session.finish(
      session.await(start, {}, Session::Ending::kIsTold),
      {.success = [&](const Dictionary& result) { return describe(path, result); },
       .failure = describeObjectFailure});
}

}  // namespace

/// Uploads one object as a template says that it is asked for.
Command makeObjectPutCommand() {
  return {.name = "object put",
          .arguments = {},
          .summary = "send a file as a template of the service says",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
