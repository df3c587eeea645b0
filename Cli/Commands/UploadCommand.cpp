#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ToldFailure.h"
#include "Cli/Arguments/Command.h"
#include "Cli/Arguments/CommandArguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/StandardInput.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/TransportFailure.h"

#include <fmt/format.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <unistd.h>
#include <utility>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Result;

namespace {

constexpr std::string_view kHelp =
    R"(Upload a file: create its record, send the bytes in chunks, commit.

Usage: varobinary [GLOBAL] upload URL FILE [--name N] [--namespace NS]
           [--security-key K] [--meta K=V]... [--chunk-size BYTES] [--raw]

  URL                     base URL of the object service
  FILE                    path of a file that is not empty, or '-' for standard input
                          (which is first copied to a temporary file)
  --name N                name on the service (default: last part of FILE, "stdin" for '-')
  --namespace NS          namespace of the file
  --security-key K        key that protects the file
  --meta K=V [K=V]...     further metadata, as text; may be repeated
  --chunk-size BYTES      bytes sent at once, such as 1048576, 512K or 4MiB
                          (default 1 MiB); a service may ask for one piece all the same
  --raw                   hand over the bytes instead of the path. With --policy compatible
                          the last chunk then carries the whole content again

Prints the id of the new file. Memory stays small for any size of file. An interrupted
upload leaves a record on the service that is not committed and is not listed.

Examples:
  varobinary upload $URL photo.jpg --namespace photos --meta camera=M6 place=Oslo
  tar cz documents | varobinary upload $URL - --name documents.tar.gz
  varobinary --token-file ~/.varo-token upload $URL report.pdf
)";

struct UploadOptions {
  std::string url;
  /// A path, or "-" for standard input.
  std::string file;
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
  if (options.file == kStandardInput) return "stdin";
  return std::filesystem::path(options.file).filename();
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
  arguments.text("FILE", options.file, Presence::kRequired);
  arguments.text("--name", options.name);
  arguments.text("--namespace", options.nameSpace);
  arguments.text("--security-key", options.securityKey);
  arguments.pairs("--meta", options.meta, {.keysAreUnique = false});
  arguments.parsed("--chunk-size", options.chunkSize, parseChunkSize);
  arguments.flag("--raw", options.raw);
}

int run(Session& session, const UploadOptions& options) {
  std::optional<InputCopy> copy;
  std::string path = options.file;
  if (options.file == kStandardInput) {
    Result<InputCopy> made = InputCopy::make(STDIN_FILENO, session.interrupts());
    if (session.interrupts().raised()) return session.finish({Outcome::Kind::kInterrupted, {}});
    if (!made) return session.finish(failed(made.error()));
    copy = std::move(made).value();
    path = copy->path();
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
                                                    session.options().options);
  };
  return session.perform(
      nameOf(options), start,
      {.success = [&](const Dictionary& result) { return describe(options, result); },
       .failure = describeUploadFailure,
       .about = {options.file == kStandardInput ? "standard input" : options.file, options.url}});
}

}  // namespace

/// Uploads one file.
Command makeUploadCommand() {
  return {.name = "upload",
          .arguments = "URL FILE",
          .summary = "upload a file, or standard input with '-'",
          .help = std::string(kHelp),
          .define = definition(declare, run)};
}

}  // namespace varo::cli
