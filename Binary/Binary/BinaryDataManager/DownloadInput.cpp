#include "Binary/Binary/BinaryDataManager/DownloadInput.h"

#include "Binary/Binary/BinaryLogger.h"
#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/Utils/TemplateUtil.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Platform/Foundation/Redaction.h"

#include <string_view>

namespace varo::binary {

using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kConfigEntry = "key=%@ value=%@";
constexpr std::string_view kConfigCopied = "Copied config into input context %@";

BinaryLogger& logger() { return BinaryLogger::sharedInstance(); }

/// What may be logged of a configuration's entry.
Value loggable(const platform::DictionaryEntry& entry) {
  if (platform::isSecretKey(entry.key)) return platform::kRedacted;
  const std::string* text = entry.value.text();
  return text != nullptr ? Value(platform::redactSecrets(*text)) : entry.value;
}

}  // namespace

Dictionary downloadInput(const Dictionary& config, const Dictionary& additional,
                         const Dictionary& primaryKeys) {
  Dictionary input;
  for (const platform::DictionaryEntry& entry : config) {
    logger().logDebug(kConfigEntry, entry.key, loggable(entry));
    input.set(entry.key, entry.value);
  }
  // The blob of a record comes into its file, which neither of these would have.
  input.remove(kStreaming);
  input.remove(kOnlineDownloadTask);
  input.addEntries(additional);
  input.set(kPrimaryKeys, primaryKeys);
  input.set(keys::kDisableIntegrityCheck, true);
  input.set(kDownloadHeaders, TemplateUtil::injectVaroAuthorizationInto(
                                  config[kDownloadHeaders].dictionaryValue(), config));
  logger().logDebug(kConfigCopied, input);
  return input;
}

}  // namespace varo::binary
