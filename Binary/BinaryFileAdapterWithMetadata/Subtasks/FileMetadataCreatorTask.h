#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"

#include <optional>
#include <string>

namespace varo::binary {

/// The first step of an upload: creates the file's metadata record. The response's upload template
/// says how and where to send the bytes; the output is the input of the chunk loop. For an upload
/// that goes on (`OperationSettings::resumed`) the response of its first run takes its place.
class FileMetadataCreatorTask final : public BinaryBaseTask {
 public:
  explicit FileMetadataCreatorTask(platform::ErrorPtr* error = nullptr);

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  void unpackInputContext();
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);
  /// Null, or the error of an address that leads to another server than it should.
  [[nodiscard]] platform::ErrorPtr copyDataToOutputContext(const platform::Dictionary& response,
                                                           const platform::Dictionary& andTemplate);

  /// The request's body: the metadata as JSON; none when it has no JSON form.
  std::optional<std::string> _bodyString;
  platform::Dictionary _fileMap;
  platform::Dictionary _metadata;
};

}  // namespace varo::binary
