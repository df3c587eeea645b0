#pragma once

/// VARO_API marks what the library exports; everything else of it is hidden.
#if defined(_WIN32)
#define VARO_API
#else
#define VARO_API __attribute__((visibility("default")))
#endif
