#pragma once

#include "Platform/Foundation/Dictionary.h"

#include <span>
#include <string_view>

namespace varo::binary {

/// The one of `known` that whoever wrote `key` most likely meant: the one with the fewest letters
/// added, left out or exchanged, in whatever letter case. Empty where none is near.
[[nodiscard]] std::string_view nearestKnownKey(std::string_view key,
                                               std::span<const std::string_view> known);

/// Logs a warning for each entry of `given` that is not among `known`, with the nearest one, since
/// an entry under a misspelled key is passed over in silence. `where` says what it stands in, as
/// people call it ("options", "the configuration"). Values are not logged. Thread-safe.
void warnOfUnknownKeys(std::string_view where, const platform::Dictionary& given,
                       std::span<const std::string_view> known);

}  // namespace varo::binary
