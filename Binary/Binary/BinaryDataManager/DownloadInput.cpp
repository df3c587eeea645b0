#include "Binary/Binary/BinaryDataManager/DownloadInput.h"

#include "Binary/Binary/BinaryDataManager/ManagerLogTexts.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/DownloadPath.h"
#include "Binary/Binary/SourceNames.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/KnownKeys.h"
#include "Platform/Foundation/Redaction.h"

#include <array>
#include <string_view>

namespace varo::binary {
namespace {

namespace texts = log_texts::download_input;

/// The entries that a download reads of its configuration.
constexpr std::array<std::string_view, 14> kConfigurationKeys = {kURL,
                                                                 kScopeName,
                                                                 kObjectName,
                                                                 kClientID,
                                                                 kSessionID,
                                                                 kChunkSizeKey,
                                                                 kResponseType,
                                                                 kDownloadHeaders,
                                                                 kVaroAuthorization,
                                                                 keys::kQueryParams,
                                                                 kFileParams,
                                                                 kOnChunkDownloadCompleted,
                                                                 kOperationSettings,
                                                                 kCancellation};

/// What may be logged of a configuration's entry.
Value loggable(const Dictionary::Entry& entry) {
  if (platform::isSecretKey(entry.key)) return platform::kRedacted;
  const std::string* text = entry.value.text();
  return text != nullptr ? Value(platform::redactSecrets(*text)) : entry.value;
}

}  // namespace

Dictionary downloadInput(const Dictionary& config, const Dictionary& additional,
                         const Dictionary& primaryKeys, const OperationSettings& settings) {
  warnOfUnknownKeys("the configuration", config, kConfigurationKeys);
  Dictionary input;
  for (const auto& entry : config) {
    logger().logDebug(texts::kConfigEntry, entry.key, loggable(entry));
    input.set(entry.key, entry.value);
  }
  // The blob of a record comes into its file, which neither of these would have.
  input.remove(kStreaming);
  input.remove(kOnlineDownloadTask);
  input.addEntries(additional);
  input.set(kPrimaryKeys, primaryKeys);
  input.set(keys::kDisableIntegrityCheck, true);
  input.set(platform::kSpoolDirectory,
            settings.blobPlaces ? settings.blobPlaces->files : DownloadPath::folderOfBlobs());
  Dictionary headers = config[kDownloadHeaders].dictionaryValue();
  if (config.contains(kVaroAuthorization)) {
    BinaryNetworkUtils::setHeader(headers, kVaroAuthorization, config[kVaroAuthorization]);
  }
  input.set(kDownloadHeaders, headers);
  logger().logDebug(texts::kConfigCopied, input);
  return input;
}

}  // namespace varo::binary
