#pragma once

#include "varo/export.h"
#include "varo/version.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// The version of the library that the program runs with, "0.1.0", which may be a later one than
/// VARO_VERSION of these headers. Lives as long as the process.
VARO_API const char* varo_version(void);

/// Ends the library: every transfer gets its outcome (`VARO_SHUT_DOWN`), its callbacks are called,
/// and the threads are joined. Later operations fail with the same code. Called by itself when the
/// process exits; calling it more than once is harmless. Handles still have to be given back.
///
/// Waits for callbacks for at most `most_ms`. 0 where one of them still runs then, or where this
/// is called inside one: what is left ends with it. Else 1.
VARO_API int varo_shut_down(int64_t most_ms);

#ifdef __cplusplus
}
#endif
