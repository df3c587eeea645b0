#pragma once

#include "varo/export.h"

#include <chrono>

namespace varo {

/// Ends the library: every operation of every client gets its outcome (`Kind::kShutDown`), its
/// callbacks are called, and the threads are joined. Later operations fail with the same kind.
/// Called by itself when the process exits; calling it more than once is harmless.
///
/// Waits for callbacks for at most `most`. False where one of them still runs then, or where this
/// is called inside one: what is left ends with it.
VARO_API bool shutDown(std::chrono::milliseconds most = std::chrono::seconds(10));

}  // namespace varo
