#pragma once

#include "Platform/Foundation/Error.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace varo::binary {

/// An error of an operation on blobs, whose user information is {"message": `message`} and, where
/// there is one, its cause under `platform::kUnderlyingError`.
[[nodiscard]] inline platform::ErrorPtr blobError(std::string_view domain, std::int32_t code,
                                                  std::string_view message,
                                                  const platform::ErrorPtr& cause = nullptr) {
  platform::Dictionary userInfo{{std::string(platform::kErrorMessageKey), message}};
  if (cause != nullptr) userInfo.set(std::string(platform::kUnderlyingError), cause);
  return std::make_shared<const platform::Error>(std::string(domain), code, std::move(userInfo));
}

}  // namespace varo::binary
