#pragma once

#include "Platform/Foundation/Value.h"

namespace varo::cli {

/// What an operation was given or delivers, as it may be printed: the values of keys, tokens and
/// cookies are replaced.
[[nodiscard]] platform::Value withoutSecrets(const platform::Value& value);
/// The same of a failure, in whose texts what looks like a secret is replaced as well.
[[nodiscard]] platform::Value failureWithoutSecrets(const platform::Value& failure);

}  // namespace varo::cli
