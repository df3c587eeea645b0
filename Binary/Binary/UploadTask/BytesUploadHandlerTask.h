#pragma once

#include "Binary/Binary/UploadTask/UploaderTask.h"
#include "Platform/Foundation/Clock.h"

#include <string>

namespace varo::binary {

/// Sends the bytes as they are, as the body of a PUT. Where the template's "Auth" is "HMACDigest",
/// the request is signed with AWS Signature Version 4 and has the signer's headers alone; the
/// upload parameters hold the keys. Errors have the domain "BackendUploaderTask"; bytes that cannot
/// be read for their digest are 6006.
class BytesUploadHandlerTask final : public UploaderTask {
 public:
  /// `clock` dates the signature where the settings have none, and lives as long as the task.
  explicit BytesUploadHandlerTask(std::string name,
                                  const platform::Clock& clock = platform::Clock::system());

 private:
  static const Texts kTexts;

  [[nodiscard]] bool prepareRequest() override;
  void uploadFile() override;

  const platform::Clock& clock_;
};

}  // namespace varo::binary
