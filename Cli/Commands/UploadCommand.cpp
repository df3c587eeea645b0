#include "Cli/Commands/UploadCommand.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Run/Session.h"
#include "Cli/Run/StandardInput.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Data.h"

#include <fmt/format.h>

#include <filesystem>
#include <optional>
#include <unistd.h>
#include <utility>

namespace varo::cli {

using binary::BinaryFileStorageInterface;
using platform::Dictionary;
using platform::Result;

namespace {

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

Outcome failed(platform::ErrorPtr error) { return {Outcome::Kind::kFailure, std::move(error)}; }

std::string describe(const UploadOptions& options, const Dictionary& result) {
  // The service may leave its answer to the commit empty; the id then stands in what was sent.
  std::string id = result[binary::keys::kFileId].textValue();
  if (id.empty()) {
    const Dictionary sent = result[binary::keys::kRequestContext].dictionaryValue();
    id = sent[binary::keys::kFileId].textValue();
  }
  return fmt::format("Uploaded {} as {}\n", printable(nameOf(options)), printable(id));
}

}  // namespace

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
  return session.perform(nameOf(options), start,
                         [&](const Dictionary& result) { return describe(options, result); });
}

}  // namespace varo::cli
