#pragma once

#include "Client/FileOperation.h"
#include "varo/files.h"
#include "varo/source.h"

#include <memory>

namespace varo::detail {

/// An upload: the record is made, the bytes are sent, the record is committed. One that is given up
/// in between removes the record again.
[[nodiscard]] FileCall<FileRecord> uploadCall(const std::shared_ptr<ClientCore>& core,
                                              Source source, UploadOptions options);

}  // namespace varo::detail
