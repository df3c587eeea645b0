#pragma once

/// The client for C, and for languages that call C: the same operations and guarantees as the C++
/// client.
///
/// - Handles are opaque. Whoever gets one from a function with "create", "open" or a name of an
///   operation gives it back with the function that its declaration names.
/// - No function gives an error by other means than its result. A NULL where something is needed
///   is `VARO_INVALID_ARGUMENT`; want of memory is `VARO_NO_MEMORY`. No C++ exception leaves a
///   function.
/// - Texts are UTF-8 and end with NUL; paths are as the system has them. What a function is given
///   is copied before it returns, unless it says otherwise.
/// - Every structure that can grow begins with its size in bytes. Set all of it to zero, which
///   means defaults everywhere, then set the size:
///
///       varo_options options = {.size = sizeof options, .url = "https://example.com"};
///
///   A size that was forgotten is an error. So is a setting that the library is too old to know.
/// - Structures that the library fills are read only. They may get further members at their end.
/// - All functions are thread-safe, but for those that end a handle: after them it is gone.
#include "varo/c/blobs.h"
#include "varo/c/failure.h"
#include "varo/c/files.h"
#include "varo/c/objects.h"
#include "varo/c/options.h"
#include "varo/c/outcome.h"
#include "varo/c/runtime.h"
#include "varo/c/transfer.h"
#include "varo/c/values.h"
