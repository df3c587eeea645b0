#pragma once

#include "Platform/Foundation/Data.h"
#include "varo/outcome.h"
#include "varo/source.h"

#include <stop_token>
#include <string>

namespace varo::detail {

class RunningBase;

/// The bytes of `source`, as something that can be sent, and sent again, piece by piece. What a
/// reader gives goes to a nameless temporary file first; the reader is called on this thread, for
/// `handle`. `about` names the upload in failures: `Kind::kLocalFile`, `kDiskFull`, and
/// `kCancelled` or `kShutDown` where that came between two pieces. Of a file that changes later no
/// byte can be read any more, which is `kIntegrity`.
[[nodiscard]] Outcome<platform::Data> dataFrom(Source source, const std::string& about,
                                               RunningBase& handle, const std::stop_token& stop);

}  // namespace varo::detail
