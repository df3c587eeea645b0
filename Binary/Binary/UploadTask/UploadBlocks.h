#pragma once

#include "Platform/Foundation/Block.h"
#include "Platform/Foundation/Value.h"

#include <memory>
#include <string>

namespace varo::binary {

/// The blocks of an upload, as they travel in contexts. In all of them `taskName` is the identifier
/// of the upload's session and `uploadParams` what the caller gave under "uploadParams", missing
/// where that was not given.

/// The template is there and the bytes are about to be sent.
using OnBytesUploadStarted =
    platform::Block<void(const std::string& taskName, const platform::Value& uploadParams)>;
/// Of uploads in chunks; no uploader calls it.
using OnByteChunkUploadCompleted =
    platform::Block<void(const std::string& taskName, const platform::Value& uploadParams)>;
/// The bytes are there. `fileDetails` is the body of the response, as text.
using OnBytesUploadCompleted =
    platform::Block<void(const std::string& taskName, const std::string& fileDetails,
                         const platform::Value& uploadParams)>;
/// The upload failed. `error` is one error (of the input, or of the template), or the array of
/// errors that a task of the upload raised.
using OnUploadFailure =
    platform::Block<void(const std::string& taskName, const platform::Value& error,
                         const platform::Value& uploadParams)>;

/// The four, each null where the caller gave none. Shared by an upload's tasks: a function of the
/// application may throw where it is copied, and then nobody would be left to tell.
struct UploadBlocks {
  std::shared_ptr<OnBytesUploadStarted> onBytesUploadStartedCompletionBlock;
  std::shared_ptr<OnByteChunkUploadCompleted> onByteChunkUploadCompletedCompletionBlock;
  std::shared_ptr<OnBytesUploadCompleted> onBytesUploadCompletedCompletionBlock;
  std::shared_ptr<OnUploadFailure> onUploadFailureCompletionBlock;
};

}  // namespace varo::binary
