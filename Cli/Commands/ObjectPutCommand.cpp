#include "Cli/Commands/ObjectPutCommand.h"

#include "Binary/Binary/BinaryDataManager/OnlineBinaryUploadManager.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Cli/Commands/ObjectRequest.h"
#include "Cli/Failures/ObjectFailure.h"
#include "Cli/Run/Session.h"
#include "Cli/Terminal/ByteFormat.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <filesystem>
#include <string>

namespace varo::cli {

using binary::OnlineBinaryUploadManager;
using platform::Dictionary;
using platform::Value;

namespace {

/// Bytes of a service's answer that people see.
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
          : fmt::format("Answer: {}\n", printable(platform::utf8Prefix(answer, kLongestAnswer))));
}

}  // namespace

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

}  // namespace varo::cli
