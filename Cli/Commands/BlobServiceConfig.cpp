#include "Cli/Commands/BlobServiceConfig.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/OptionValues.h"
#include "Cli/Run/ClientRun.h"
#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <cstdint>

namespace varo::cli {

using platform::Dictionary;
using platform::Result;

Result<Dictionary> readBlobServiceConfig(const std::string& path) {
  Result<Dictionary> config = readBlobConfiguration(path);
  if (!config) return config;
  for (const char* key : {binary::kURL, binary::kScopeName}) {
    if ((*config)[key].textValue().empty()) {
      return usageError(fmt::format("'{}' has no \"{}\"", path, key));
    }
  }
  return config;
}

Dictionary blobHeaders(const GlobalOptions& global, const Dictionary& config) {
  Dictionary headers = config[binary::kDownloadHeaders].dictionaryValue();
  for (const auto& header : global.headers) {
    setHeader(headers, header.key, header.value.textValue());
  }
  return headers;
}

BlobService blobService(const GlobalOptions& global, const Dictionary& config) {
  GlobalOptions merged = global;
  merged.headers = blobHeaders(global, config);
  if (!merged.token && !hasHeader(merged.headers, binary::kVaroAuthorization)) {
    const std::string token = config[binary::kVaroAuthorization].textValue();
    if (!token.empty()) merged.token = token;
  }
  BlobService service;
  service.options = clientOptions(merged, config[binary::kURL].textValue());
  // In the configuration names stand as in the address.
  service.scope = platform::percentDecode(config[binary::kScopeName].textValue());
  service.object = platform::percentDecode(config[binary::kObjectName].textValue());
  if (const std::int64_t size = config[binary::kChunkSizeKey].integerValue(); size > 0) {
    service.rangeSize = Bytes(static_cast<std::uint64_t>(size));
  }
  if (platform::equalIgnoringCase(config[binary::kResponseType].textValue(), "Base64")) {
    service.encoding = BlobEncoding::kBase64;
  }
  service.clientId = config[binary::kClientID].textValue();
  service.syncSessionId = config[binary::kSessionID].textValue();
  for (const auto& entry : config[binary::keys::kQueryParams].dictionaryValue()) {
    service.parameters.emplace(entry.key, entry.value.textValue());
  }
  return service;
}

}  // namespace varo::cli
