#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <string>

namespace varo::binary {

/// A failure in one shape, however it was told.
struct ToldFailure {
  std::string domain;
  std::int64_t code = 0;
  /// Readable; empty where nothing was said.
  std::string text;
  platform::Dictionary userInfo;
  /// The error at the end of the chain below; null where there is none.
  platform::ErrorPtr cause;
};

/// Reads what a failure block gets, in each of the shapes that the library delivers: the dictionary
/// of "code", "domain" and "localizedDescription", a caught exception or a download's contexts
/// under "error", or an error itself. Of an error that only collects others, the first of them.
/// Thread-safe.
[[nodiscard]] ToldFailure readFailure(const platform::Value& failure);

}  // namespace varo::binary
