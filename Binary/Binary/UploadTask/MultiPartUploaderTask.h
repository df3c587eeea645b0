#pragma once

#include "Binary/Binary/UploadTask/UploaderTask.h"
#include "Platform/Foundation/Array.h"

#include <string>
#include <string_view>

namespace varo::binary {

/// Sends the bytes as a part of a form (POST, multipart/form-data), which the template's
/// "requestBody" describes:
/// - an entry that is a dictionary becomes a part with its JSON;
/// - an entry that is a text becomes a part with the file's bytes; these parts go last;
/// - a text that is "fileContent", in any letter case, makes no part: services count on it.
///
/// A form without the bytes is sent nevertheless; under `TransferPolicy::kSafe` it is an error,
/// 6012, and nothing is sent. Errors have the domain "BackendUploadedTask".
class MultiPartUploaderTask final : public UploaderTask {
 public:
  explicit MultiPartUploaderTask(std::string name);

  /// A part with bytes: its headers and its content, each a dictionary of one entry.
  [[nodiscard]] static platform::Array addFilePart(std::string_view name,
                                                   std::string_view withFileName,
                                                   const platform::Data& andFileData);
  /// A part with the JSON of `andData`.
  [[nodiscard]] static platform::Array addDataPartWithDictionary(
      std::string_view name, const platform::Dictionary& andData);

 private:
  static const Texts kTexts;

  void uploadFile() override;
};

}  // namespace varo::binary
