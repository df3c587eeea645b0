#pragma once

#include "Cli/Arguments/GlobalOptions.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "varo/blobs.h"

#include <string>

namespace varo::cli {

/// The JSON object at `path`, which has to name a service of blobs: "URL" and "ScopeName".
[[nodiscard]] platform::Result<platform::Dictionary> readBlobServiceConfig(const std::string& path);

/// The service that a configuration of downloads names, as the typed client takes it. Headers and
/// token of the command line win over those in it.
[[nodiscard]] BlobService blobService(const GlobalOptions& global,
                                      const platform::Dictionary& config);

/// The headers of blob requests: those of the configuration, and those of the options, which win.
[[nodiscard]] platform::Dictionary blobHeaders(const GlobalOptions& global,
                                               const platform::Dictionary& config);

}  // namespace varo::cli
