#include "Cli/Commands/ObjectRequest.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Arguments/GlobalOptions.h"
#include "Cli/Run/Session.h"
#include "Platform/Foundation/Text.h"

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

Dictionary objectConfiguration(const GlobalOptions& global, Dictionary config) {
  const Value given = config[binary::keys::kHeaders];
  // The library says what is wrong with headers of another kind.
  if (given.isPresent() && !given.isDictionary()) return config;
  Dictionary headers = given.dictionaryValue();
  for (const auto& header : global.headers) {
    const bool isToken = platform::equalIgnoringCase(header.key, binary::kVaroAuthorization);
    if (!isToken || !global.token) setHeader(headers, header.key, header.value.textValue());
  }
  if (!headers.empty()) config.set(binary::keys::kHeaders, headers);
  return config;
}

Dictionary objectOptions(const Session& session, Dictionary fromFile,
                         const std::shared_ptr<binary::OperationSettings>& settings) {
  const GlobalOptions& global = session.options();
  fromFile.addEntries(session.operationOptions(settings));
  if (global.token) fromFile.set(binary::kVaroAuthorization, *global.token);
  return fromFile;
}

}  // namespace varo::cli
