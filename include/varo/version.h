#pragma once

#include "varo/export.h"

#ifdef __cplusplus
#include <string_view>
#endif

/// The version of these headers. https://semver.org
///
/// The one place where it stands: the build reads these three lines.
#define VARO_VERSION_MAJOR 0
#define VARO_VERSION_MINOR 1
#define VARO_VERSION_PATCH 0

/// The same as a text: "0.1.0".
#define VARO_VERSION VARO_VERSION_TEXT(VARO_VERSION_MAJOR, VARO_VERSION_MINOR, VARO_VERSION_PATCH)
#define VARO_VERSION_TEXT(major, minor, patch) VARO_VERSION_TEXT_OF(major, minor, patch)
#define VARO_VERSION_TEXT_OF(major, minor, patch) #major "." #minor "." #patch

#ifdef __cplusplus
namespace varo {

/// The version of the library that the program runs with, which may be a later one.
[[nodiscard]] VARO_API std::string_view version() noexcept;

}  // namespace varo
#endif
