#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryCallbackUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/BinaryNetworkUtils.h"

namespace varo::binary {

using platform::Dictionary;
using platform::DictionaryEntry;
using platform::ErrorPtr;
using platform::Value;

BinaryBaseTask::BinaryBaseTask(ErrorPtr* /*error*/) {}

void BinaryBaseTask::unpackFileRequest(const Dictionary& input) {
  url_ = input[keys::kUrl].textValue().append(kObjectsFileSuffix);
  headers_ = Dictionary{{kContentType, kContentTypeJson}};
  for (const DictionaryEntry& header : input[keys::kHeaders].dictionaryValue()) {
    BinaryNetworkUtils::setHeader(headers_, header.key, header.value);
  }
  options_ = optionalDictionary(input[keys::kOptions]);
  binaryCallback_ = input[keys::kCallback].objectAs<BinaryCallback>();
}

void BinaryBaseTask::reportFailure(const ErrorPtr& error) {
  BinaryCallbackUtils::executeFailureCallback(binaryCallback_, error);
}

void BinaryBaseTask::fail(const ErrorPtr& error) {
  raiseError(error);
  reportFailure(error);
}

void BinaryBaseTask::addResponseForNextTask(Dictionary response,
                                            std::initializer_list<const char*> callersOwn) {
  for (const char* own : callersOwn) response.remove(own);
  _outputContext.addEntries(response);
}

std::optional<Dictionary> BinaryBaseTask::optionalDictionary(const Value& value) {
  const Dictionary* dictionary = value.dictionary();
  return dictionary != nullptr ? std::optional(*dictionary) : std::nullopt;
}

}  // namespace varo::binary
