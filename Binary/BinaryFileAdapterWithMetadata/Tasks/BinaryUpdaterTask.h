#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"

namespace varo::binary {

/// Replaces a file's metadata with one PUT.
///
/// Input: "url", "callback", "metadata" (with "file_id"), and optional "headers" and "options".
/// Output, which is the caller's result: the response's entries and "requestContext", the metadata
/// as sent.
class BinaryUpdaterTask final : public BinaryBaseTask {
 public:
  /// `error` is the base's: logged where it is set.
  explicit BinaryUpdaterTask(platform::ErrorPtr error = nullptr);

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  void unpackInputContext();
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);

  std::string _fileId;
  platform::Dictionary _metadata;
};

}  // namespace varo::binary
