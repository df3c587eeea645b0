#pragma once

#include "Platform/Foundation/JobContext.h"
#include "varo/options.h"

namespace varo::detail {

/// The context that the operations of a client work in: what they log goes to `Options::log`, or
/// nowhere.
[[nodiscard]] platform::JobContext::Ptr logContextOf(const Options& options);

}  // namespace varo::detail
