#pragma once

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Error.h"

#include <string>
#include <string_view>

/// What stands in the error context of a download, under "PersistenceError", where the file system
/// is the reason. Stateless, thread-safe.
namespace varo::binary {

/// The user information of an error about the file at `path`.
[[nodiscard]] platform::Dictionary fileFailure(std::string_view message,
                                               const platform::ErrorPtr& cause,
                                               const std::string& path);
/// The same for a file that cannot be created.
[[nodiscard]] platform::Dictionary creationFailure(const platform::ErrorPtr& cause,
                                                   const std::string& path);

}  // namespace varo::binary
