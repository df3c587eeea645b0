#pragma once

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Result.h"
#include "varo/outcome.h"
#include "varo/source.h"

#include <functional>
#include <stop_token>
#include <string>
#include <string_view>

namespace varo::detail {

class RunningBase;

/// The bytes of `source`, as something that can be sent, and sent again, piece by piece. What a
/// reader gives goes to a nameless temporary file first; the reader is called on this thread, for
/// `handle`. `about` names the upload in failures: `Kind::kLocalFile`, `kDiskFull`, and
/// `kCancelled` or `kShutDown` where that came between two pieces. Of a file that changes later no
/// byte can be read any more, which is `kIntegrity`.
[[nodiscard]] Outcome<platform::Data> dataFrom(Source source, const std::string& about,
                                               RunningBase& handle, const std::stop_token& stop);

/// Reads all of `data`, of which a part may have gigabytes. A stop between two pieces is
/// `HttpTransportError::kCancelled`.
[[nodiscard]] platform::Result<void> readPieces(
    const platform::Data& data, const std::stop_token& stop,
    const std::function<void(std::string_view piece)>& take);

}  // namespace varo::detail
