#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <optional>

namespace varo::binary {

/// The rules of `OnlineBinaryUploadManager::validateInput`.
[[nodiscard]] platform::ErrorPtr checkUploadConfiguration(
    const std::optional<platform::Dictionary>& configuration);

}  // namespace varo::binary
