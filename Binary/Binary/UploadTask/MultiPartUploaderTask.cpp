#include "Binary/Binary/UploadTask/MultiPartUploaderTask.h"

#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/Binary/Utils/FormData.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Text.h"

namespace varo::binary {

using platform::Array;
using platform::Data;
using platform::Dictionary;
using platform::DictionaryEntry;
using platform::RequestType;
using platform::Value;
using platform::VRONetworkUtility;

namespace {

/// The name that every file goes by in a form, whatever the caller calls it.
constexpr std::string_view kFileNameInForm = "fileName";
constexpr std::string_view kNoFilePart =
    "the upload template's requestBody has no part for the file's bytes";

}  // namespace

constinit const UploaderTask::Texts MultiPartUploaderTask::kTexts = {
    .domain = kFormUploaderErrorDomain,
    .noUploadParams = "[BackendUploaderTask] No uploadParams found",
    .requestBody = "[BackendUploaderTask] requestbody: %@",
    .url = "[BackendUploaderTask] url: %@",
    .completed = "[BackendUploaderTask] file upload completed successfully",
    .unexpectedStatus = "[BackendUploaderTask] received response with status code %ld",
    .requestFailed = "[BackendUploaderTask] received error after uploadCall"};

MultiPartUploaderTask::MultiPartUploaderTask(std::string name)
    : UploaderTask(std::move(name), kTexts) {}

Array MultiPartUploaderTask::addFilePart(std::string_view name, std::string_view withFileName,
                                         const Data& andFileData) {
  Array part;
  part.append(Dictionary{{kContentDisposition, formDataDisposition(name, withFileName)}});
  part.append(Dictionary{{kContentType, kContentTypeOctetStream}});
  part.append(Dictionary{{kPartContent, andFileData}});
  return part;
}

Array MultiPartUploaderTask::addDataPartWithDictionary(std::string_view name,
                                                       const Dictionary& andData) {
  Array part;
  part.append(Dictionary{{kContentDisposition, formDataDisposition(name, std::nullopt)}});
  part.append(Dictionary{
      {kPartContent, CommonUtils::jsonStringFromDictionary(andData).value_or(std::string())}});
  return part;
}

void MultiPartUploaderTask::uploadFile() {
  Array parts;
  Array fileParts;
  for (const DictionaryEntry& entry : requestBody_) {
    if (const std::string* text = entry.value.text()) {
      if (platform::equalIgnoringCase(*text, upload::kFileContent)) continue;
      fileParts.append(addFilePart(entry.key, kFileNameInForm, fileData_));
    } else if (const Dictionary* data = entry.value.dictionary()) {
      parts.append(addDataPartWithDictionary(entry.key, *data));
    }
  }
  if (fileParts.empty() && settings()->isSafe()) {
    return raise(kCodeUploadInvalidParameterValue, kUploadInvalidParameterValue, kNoFilePart);
  }
  for (const Value& part : fileParts) parts.append(part);
  VRONetworkUtility::POST(url_, {}, headers_, RequestType::kMultipart,
                          Dictionary{{kMultipartParts, std::move(parts)}}, requestOptions(),
                          completion());
}

}  // namespace varo::binary
