#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace varo::binary {

/// An error of an operation on blobs, whose user information is {"message": `message`}.
[[nodiscard]] inline platform::ErrorPtr blobError(std::string_view domain, std::int32_t code,
                                                  std::string_view message) {
  return std::make_shared<const platform::Error>(
      std::string(domain), code,
      platform::Dictionary{{std::string(platform::kErrorMessageKey), message}});
}

}  // namespace varo::binary
