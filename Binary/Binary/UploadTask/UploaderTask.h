#pragma once

#include "Binary/Binary/UploadTask/UploadBlocks.h"
#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/VRONetworkUtility.h"
#include "Platform/TaskEngine/VSTask.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

class TemplateUtil;

/// The second step of an online upload: sends a file's bytes in one request, as an upload template
/// says. How the request looks is the subclass's business.
///
/// Input: "redirectionTemplate" and "templateString", the template as JSON and as text; "rawBytes"
/// or "FilePath"; "uploadParams", which fill the text's placeholders, escaped, so that no value can
/// change more of the template than it stands for; "options", for the service's domain and token.
/// Output: "fileDetails", the response's body as text. Runs once.
///
/// Nothing is loaded: bytes of a file are read piece by piece while they are sent. These count as
/// empty; under `TransferPolicy::kSafe` each is an error:
/// - a file that cannot be read: 6007, and nothing is sent;
/// - a template that is no dictionary once it is filled: 6012, and nothing is sent;
/// - a response that cannot be read: 6006.
///
/// The service's token goes wherever the template says; under `kSafe` only to the server of the
/// configuration's "URL" and to that of the options' "domain".
///
/// Other errors, with what caused them under `platform::kUnderlyingError`:
/// - 6018 for a template whose path leads away from its domain;
/// - 6008 for a status other than 200 and 201; under `kSafe` for one other than 2xx, and the user
///   information has "httpStatusCode" and the start of the body, "responseBody";
/// - 6006 for a request that got no response, or one of more bytes than `AnswerLimits` allows.
class UploaderTask : public platform::VSTask {
 public:
  /// Before `start` only.
  void setBlocks(UploadBlocks blocks) { blocks_ = std::move(blocks); }
  [[nodiscard]] const UploadBlocks& blocks() const noexcept { return blocks_; }

  /// Unpacks, calls the started block, sends.
  void execute() final;

  /// Ends the task with what the response says.
  void processNetworkResponse(const platform::Dictionary& response,
                              const std::optional<platform::Data>& withData);

 protected:
  /// The domain of a subclass's errors, and what it logs.
  struct Texts {
    std::string_view domain;
    std::string_view noUploadParams;
    std::string_view requestBody;
    std::string_view url;
    std::string_view completed;
    std::string_view unexpectedStatus;
  };

  /// `texts` lives as long as the process.
  UploaderTask(std::string name, const Texts& texts);

  /// Whether the request can be sent; else the error was raised. By default it can.
  [[nodiscard]] virtual bool prepareRequest() { return true; }
  /// Issues the one request, whose end goes to `completion`.
  virtual void uploadFile() = 0;

  [[nodiscard]] platform::NetworkCallback completion();
  /// Ends the task with "`message`: `detail`".
  void raise(std::int32_t code, std::string_view message, std::string_view detail,
             const platform::ErrorPtr& cause = nullptr);
  void raise(std::int32_t code, std::string_view message, const platform::ErrorPtr& cause);
  [[nodiscard]] OperationSettings::Ptr settings() const;
  /// Of the one request.
  [[nodiscard]] platform::Dictionary requestOptions() const;

  // Owned by the run of the task.
  std::string url_;
  platform::Dictionary headers_;
  platform::Dictionary uploadParams_;
  std::string localFilePath_;
  platform::Dictionary requestBody_;
  platform::Data fileData_;
  platform::Dictionary redirectionTemplate_;

 private:
  [[nodiscard]] bool unpackInputContext();
  [[nodiscard]] bool readFile();
  [[nodiscard]] bool extractTemplate();
  [[nodiscard]] bool mayHaveToken(const platform::Dictionary& input,
                                  const std::optional<platform::Dictionary>& options) const;
  void logTemplate(const TemplateUtil& text,
                   const std::optional<platform::Dictionary>& options) const;
  void processAnswer(const std::optional<platform::Data>& data,
                     const platform::Dictionary& response, const platform::ErrorPtr& error);
  void raiseUnexpectedStatus(int status, const std::optional<platform::Data>& body);

  const Texts& texts_;
  UploadBlocks blocks_;  // constant after `start`
};

}  // namespace varo::binary
