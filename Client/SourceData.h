#pragma once

#include "Platform/Foundation/Data.h"
#include "varo/outcome.h"
#include "varo/source.h"

namespace varo::detail {

/// The bytes of `source`, as something that can be sent, and sent again, piece by piece. What a
/// reader gives goes to a nameless temporary file first; the reader is called on this thread.
/// Failures: `Kind::kLocalFile`, `kDiskFull`.
[[nodiscard]] Outcome<platform::Data> dataFrom(Source source);

}  // namespace varo::detail
