#pragma once

#include "Platform/Foundation/Value.h"

namespace varo::binary {

/// The input of the download of a record's binary column: what the caller configured, unless
/// `additional` or the library itself says otherwise: nothing turns it into a stream or into an
/// online download. The authorization token of `config` stands
/// among the headers too.
[[nodiscard]] platform::Dictionary downloadInput(const platform::Dictionary& config,
                                                 const platform::Dictionary& additional,
                                                 const platform::Dictionary& primaryKeys);

}  // namespace varo::binary
