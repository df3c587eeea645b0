#pragma once

#include "Binary/Binary/UploadTask/UploadBlocks.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/TaskEngine/VSTask.h"

#include <optional>
#include <string>

namespace varo::binary {

/// The first step of an online upload: posts the upload parameters to the back end, whose response,
/// the upload template, says where and how to send the bytes.
///
/// Input: "URL", "headers", "uploadParams" (its "fileName" names the file, else the task's name
/// does), "FilePath" or "rawBytes", and the four blocks under their keys. Output:
/// "redirectionTemplate" (the response as JSON, if it is), "templateString" (as text), "fileName",
/// "uploadParams", "rawBytes", "FilePath". Runs once.
///
/// Errors:
/// - "UploadTemplateTask", 6008: a status other than 200, with the start of the response's text;
/// - "UploadTemplateTask", 6014, under `TransferPolicy::kSafe`: a response without a body;
/// - "BackendUploaderTask", 6006: the request got no response, or one of more bytes than
///   `AnswerLimits` allows. The cause is under `platform::kUnderlyingError`.
class UploadTemplateGetterTask final : public platform::VSTask {
 public:
  explicit UploadTemplateGetterTask(std::string name);

  void execute() override;

  /// Ends the task with what the response says.
  void processNetworkResponse(const platform::Dictionary& response,
                              const std::optional<platform::Data>& withData);

  /// Those of the input.
  [[nodiscard]] UploadBlocks blocks() const;

 private:
  void unpackInputContext();
  void unpackUploadParams(const platform::Dictionary& input);
  void invokePostCall();
  void processAnswer(const std::optional<platform::Data>& data,
                     const platform::Dictionary& response, const platform::ErrorPtr& error);
  void raise(std::int32_t code, std::string_view message, platform::Dictionary userInfo = {});

  // Owned by the run of the task.
  OperationSettings::Ptr settings_ = OperationSettings::of({});
  std::string url_;
  platform::Dictionary headers_;
  /// Missing where the input has none.
  platform::Value uploadParams_;
  std::string uploadFileName_;
  platform::Value localFilePath_;
  platform::Value fileContent_;
};

}  // namespace varo::binary
