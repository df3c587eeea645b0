#pragma once

#include "Binary/BinaryFileAdapterWithMetadata/Tasks/BinaryBaseTask.h"
#include "Platform/Common/NetworkError.h"

namespace varo::binary {

/// The last step of an upload: tells the service that the bytes are there, with the headers of the
/// store's last response (its entity tag) among the commit properties. Reports the upload's
/// success.
///
/// Output, which is the caller's result: the response's entries, "commit_properties" (as sent) and
/// "requestContext" (the metadata as sent, without them).
class UploadCommiterTask final : public BinaryBaseTask {
 public:
  explicit UploadCommiterTask(platform::ErrorPtr* error = nullptr);

  void execute() override;

 protected:
  [[nodiscard]] std::string_view errorDomain() const noexcept override;

 private:
  void unpackInputContext();
  /// Makes the metadata's commit properties the JSON text to be sent, with the entries of
  /// `responseHeaders` that are not the service's own.
  void replaceCommitProperties(const platform::Value& responseHeaders);
  void processResponse(const platform::Dictionary& response,
                       const platform::NetworkErrorPtr& error);

  /// The commit's body, and, being the same dictionary, the caller's `_requestContext`.
  platform::Dictionary _metadata;
};

}  // namespace varo::binary
