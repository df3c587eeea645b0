#pragma once

#include "varo/export.h"

#ifdef __cplusplus
#include <string_view>
#endif

/// The version of these headers. https://semver.org
#define VARO_VERSION_MAJOR 0
#define VARO_VERSION_MINOR 1
#define VARO_VERSION_PATCH 0
#define VARO_VERSION "0.1.0"

#ifdef __cplusplus
namespace varo {

/// The version of the library that the program runs with, which may be a later one.
[[nodiscard]] VARO_API std::string_view version() noexcept;

}  // namespace varo
#endif
