#pragma once

#include "Sandbox/Http/HttpRequest.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Storage/DiskStore.h"

#include <optional>

namespace varo::sandbox {

class DiskWriter;

/// Moves the content of a request into `writer`: the one part of a multipart body, or the body as
/// it is, and finishes it. Nothing is held in memory but the piece on its way.
[[nodiscard]] std::optional<WriteProblem> receiveBody(const HttpRequest& request, RequestBody& body,
                                                      DiskWriter& writer);

/// What is wrong with a body that ended so. A sink that refused knows its own reason.
[[nodiscard]] std::optional<WriteProblem> problemOf(RequestBody::End end);

/// Whether the request says that its body is multipart/form-data.
[[nodiscard]] bool isMultipart(const HttpRequest& request);

}  // namespace varo::sandbox
