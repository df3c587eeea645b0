#include "Cli/Commands/UploadCommand.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/FileAdapterInterface/BinaryFileStorageInterface.h"
#include "Cli/Session.h"
#include "Cli/StandardInput.h"
#include "Cli/TemporaryDirectory.h"
#include "Cli/TerminalText.h"
#include "Platform/Foundation/Data.h"

#include <fmt/format.h>

#include <filesystem>
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

/// Standard input as a file in `directory`, which is made.
Result<std::string> spoolStandardInput(std::optional<TemporaryDirectory>& directory,
                                       const Interrupts& interrupts) {
  Result<TemporaryDirectory> made = TemporaryDirectory::make();
  if (!made) return made.error();
  directory = std::move(made).value();
  std::string path = directory->path() + "/stdin";
  if (auto spooled = spool(STDIN_FILENO, path, interrupts); !spooled) return spooled.error();
  return path;
}

}  // namespace

int run(Session& session, const UploadOptions& options) {
  std::optional<TemporaryDirectory> directory;
  std::string path = options.file;
  if (options.file == kStandardInput) {
    Result<std::string> spooled = spoolStandardInput(directory, session.interrupts());
    if (session.interrupts().raised()) return session.finish({Outcome::Kind::kInterrupted, {}});
    if (!spooled) return session.finish(failed(spooled.error()));
    path = std::move(spooled).value();
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
    BinaryFileStorageInterface::uploadBinaryWithUrl(options.url, inputType, parameters,
                                                    blocks.onSuccess, blocks.onFailure,
                                                    blocks.onProgress, session.options().options);
  };
  return session.perform(nameOf(options), start,
                         [&](const Dictionary& result) { return describe(options, result); });
}

}  // namespace varo::cli
