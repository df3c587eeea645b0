#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ToldFailure.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Commands/SeveralUploads.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Failures/CommandErrors.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/StandardInput.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/TransportFailure.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Result;

namespace {

constexpr std::string_view kHelp =
    R"(Upload files: create their records, send the bytes in chunks, commit.

Usage: varobinary [GLOBAL] upload URL FILE... [--name N] [--namespace NS]
           [--security-key K] [--meta K=V]... [--chunk-size BYTES] [--raw]

  URL                     base URL of the object service
  FILE                    path of a file that is not empty, or '-' for standard input
                          (which is first copied to a temporary file). Several are sent
                          side by side, as many at once as --parallel says
  --name N                name on the service (default: last part of FILE, "stdin" for '-'); of
                          one file alone
  --namespace NS          namespace of the file
  --security-key K        key that protects the file
  --meta K=V [K=V]...     further metadata, as text; may be repeated
  --chunk-size BYTES      bytes sent at once, such as 1048576, 512K or 4MiB
                          (default 1 MiB); a service may ask for one piece all the same
  --raw                   hand over the bytes instead of the path. With --policy compatible
                          the last chunk then carries the whole content again

Prints the id of the new file. Memory stays small for any size of file. An interrupted
upload leaves a record on the service that is not committed and is not listed.

Of several files each ends for itself, and the exit status is 1 where one has failed. The
policy is then always safe, --raw and --option say nothing, and an interrupted upload removes
its record.

Examples:
  varobinary upload $URL photo.jpg --namespace photos --meta camera=M6 place=Oslo
  varobinary upload $URL *.jpg --namespace photos --parallel 8
  tar cz documents | varobinary upload $URL - --name documents.tar.gz
  varobinary --token-file ~/.varo-token upload $URL report.pdf
)";

struct UploadOptions {
  std::string url;
  /// Of several each is a path; one alone may be "-" for standard input.
  std::vector<std::string> files;
  /// Empty: the last component of the path, or "stdin".
  std::string name;
  std::optional<std::string> nameSpace;
  std::optional<std::string> securityKey;
  /// Further metadata.
  platform::Dictionary meta;
  /// Bytes; none: the library's default.
  std::optional<std::int64_t> chunkSize;
  /// Give the library the bytes instead of the path.
  bool raw = false;
};

constexpr std::string_view kStandardInput = "-";

std::string nameOf(const UploadOptions& options) {
  if (!options.name.empty()) return options.name;
  if (options.files.front() == kStandardInput) return "stdin";
  return std::filesystem::path(options.files.front()).filename();
}

Dictionary metadataOf(const UploadOptions& options) {
  Dictionary metadata = options.meta;
  metadata.set(binary::keys::kFileName, nameOf(options));
  if (options.nameSpace) metadata.set(binary::keys::kFileNamespace, *options.nameSpace);
  if (options.securityKey) metadata.set(binary::keys::kSecurityKey, *options.securityKey);
  return metadata;
}

/// The entry "file" of the upload parameters.
Result<Dictionary> contentOf(const std::string& path, bool raw) {
  if (!raw) return Dictionary{{binary::keys::kFilePath, path}};
  const Result<platform::Data> bytes = platform::Data::fromFile(path);
  if (!bytes) return bytes.error();
  return Dictionary{{binary::keys::kRawBytes, *bytes}};
}

/// The library does not say whether a commit whose response was lost was carried out, so only a
/// failure with a response, or before a connection stood, does no harm when it is repeated.
FailureText describeUploadFailure(const platform::Value& failure) {
  FailureText text = describeFailure(failure);
  const auto transport = platform::transportFailureIn(binary::readFailure(failure).userInfo);
  const bool sentNothing = transport == platform::TransportFailure::kNameNotFound ||
                           transport == platform::TransportFailure::kNoConnection;
  text.facts.isRetryable = text.facts.isRetryable && (text.facts.httpStatus || sentNothing);
  return text;
}

Outcome failed(platform::ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

std::string describe(const UploadOptions& options, const Dictionary& result) {
  // The service may leave its response to the commit empty; the id then stands in what was sent.
  std::string id = result[binary::keys::kFileId].textValue();
  if (id.empty()) {
    const Dictionary sent = result[binary::keys::kRequestContext].dictionaryValue();
    id = sent[binary::keys::kFileId].textValue();
  }
  return fmt::format("Uploaded {} as {}\n", printable(nameOf(options)), printable(id));
}

void declare(CommandArguments& arguments, UploadOptions& options) {
  arguments.parsed("URL", options.url, parseBaseUrl, Presence::kRequired);
  arguments.words("FILE", options.files);
  arguments.text("--name", options.name);
  arguments.text("--namespace", options.nameSpace);
  arguments.text("--security-key", options.securityKey);
  arguments.pairs("--meta", options.meta, {.keysAreUnique = false});
  arguments.parsed("--chunk-size", options.chunkSize, parseChunkSize);
  arguments.flag("--raw", options.raw);
  arguments.check([&options] {
    if (options.files.size() == 1) return;
    if (!options.name.empty()) {
      CommandArguments::reject("--name", "is for one file; of several each has its own");
    }
    const auto end = options.files.end();
    if (std::find(options.files.begin(), end, kStandardInput) != end) {
      CommandArguments::reject("upload", "'-' is for one file alone");
    }
  });
}

int runSeveral(Session& session, const UploadOptions& options) {
  varo::UploadOptions each;
  for (const auto& entry : options.meta) {
    each.metadata.emplace(entry.key, entry.value.textValue());
  }
  each.fileNamespace = options.nameSpace.value_or("");
  each.securityKey = options.securityKey.value_or("");
  if (options.chunkSize) each.chunkSize = Bytes(static_cast<std::uint64_t>(*options.chunkSize));
  return uploadSeveral(session, options.url, options.files, each);
}

int run(Session& session, const UploadOptions& options) {
  if (options.files.size() > 1) return runSeveral(session, options);
  std::optional<InputCopy> copy;
  std::string path = options.files.front();
  if (options.files.front() == kStandardInput) {
    Result<InputCopy> made = InputCopy::make(STDIN_FILENO, session.interrupts());
    if (session.interrupts().raised()) return session.finish({Outcome::Kind::kInterrupted, {}});
    if (!made) return session.finish(failed(made.error()));
    copy = std::move(made).value();
    path = copy->path();
  }
  if (platform::sanitizeUtf8(nameOf(options)) != nameOf(options)) {
    const std::string message = fmt::format(
        "the name '{}' is not UTF-8, which the service cannot note", printable(nameOf(options)));
    return session.finish(
        failed(commandError(kCodeUnusableName, message,
                            std::string(varo::nameOf(Kind::kInvalidArgument)), false)),
        {.failure = [](const platform::Value& failure) {
          FailureText text = describeFailure(failure);
          text.hint = "Give it another name with --name.";
          return text;
        }});
  }
  const Result<Dictionary> content = contentOf(path, options.raw);
  if (!content) return session.finish(failed(content.error()));

  Dictionary parameters{{binary::keys::kHeaders, session.options().headers},
                        {binary::keys::kMetadata, metadataOf(options)},
                        {binary::keys::kFile, *content}};
  if (options.chunkSize) parameters.set(binary::keys::kChunkSize, *options.chunkSize);
  const std::string_view inputType =
      options.raw ? binary::kUploadInputTypeRawBytes : binary::kUploadInputTypeLocalFilePath;
  const auto start = [&](const Session::Blocks& blocks) {
    // One that an interrupt leaves under way has the copy as long as it has its blocks.
    const auto onFailure = [copy, report = blocks.onFailure](const platform::Value& error) {
      report(error);
    };
    BinaryFileStorageInterface::uploadBinaryWithUrl(options.url, inputType, parameters,
                                                    blocks.onSuccess, onFailure, blocks.onProgress,
                                                    session.operationOptions());
  };
  return session.perform(
      nameOf(options), start,
      {.success = [&](const Dictionary& result) { return describe(options, result); },
       .failure = describeUploadFailure,
       .about = {options.files.front() == kStandardInput ? "standard input" : options.files.front(),
                 options.url}});
}

}  // namespace

/// Uploads one file, or several side by side.
Command makeUploadCommand() {
  return {.name = "upload",
          .arguments = "URL FILE...",
          .summary = "upload files, or standard input with '-'",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
