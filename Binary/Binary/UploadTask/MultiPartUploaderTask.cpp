#include "Binary/Binary/UploadTask/MultiPartUploaderTask.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/UploadTask/UploadKeys.h"
#include "Binary/Binary/UploadTask/UploadLogTexts.h"
#include "Binary/Binary/Utils/CommonUtils.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/FormData.h"

namespace varo::binary {

using platform::RequestType;
using platform::VRONetworkUtility;

namespace {

/// The name that every file goes by in a form, whatever the caller calls it.
constexpr std::string_view kFileNameInForm = "fileName";
constexpr std::string_view kNoFilePart =
    "the upload template's requestBody has no part for the file's bytes";

}  // namespace

constinit const UploaderTask::Texts MultiPartUploaderTask::kTexts = {
    .domain = kFormUploaderErrorDomain,
    .noUploadParams = log_texts::multi_part_uploader_task::kNoUploadParams,
    .requestBody = log_texts::multi_part_uploader_task::kRequestBody,
    .url = log_texts::multi_part_uploader_task::kUrl,
    .completed = log_texts::multi_part_uploader_task::kCompleted,
    .unexpectedStatus = log_texts::multi_part_uploader_task::kUnexpectedStatus};

MultiPartUploaderTask::MultiPartUploaderTask(std::string name)
    : UploaderTask(std::move(name), kTexts) {}

Array MultiPartUploaderTask::addFilePart(std::string_view name, std::string_view withFileName,
                                         const Data& andFileData) {
  Array part;
  part.append(Dictionary{{kContentDisposition, platform::formDataDisposition(name, withFileName)}});
  part.append(Dictionary{{kContentType, kContentTypeOctetStream}});
  part.append(Dictionary{{kPartContent, andFileData}});
  return part;
}

Array MultiPartUploaderTask::addDataPartWithDictionary(std::string_view name,
                                                       const Dictionary& andData) {
  Array part;
  part.append(Dictionary{{kContentDisposition, platform::formDataDisposition(name, std::nullopt)}});
  part.append(Dictionary{
      {kPartContent, CommonUtils::jsonStringFromDictionary(andData).value_or(std::string())}});
  return part;
}

void MultiPartUploaderTask::uploadFile() {
  Array parts;
  Array fileParts;
  for (const auto& entry : requestBody_) {
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
  // The file last: object stores ignore what follows it in a form.
  for (const Value& part : fileParts) parts.append(part);
  VRONetworkUtility::POST(url_, {}, headers_, RequestType::kMultipart,
                          Dictionary{{kMultipartParts, std::move(parts)}}, requestOptions(),
                          completion());
}

}  // namespace varo::binary
