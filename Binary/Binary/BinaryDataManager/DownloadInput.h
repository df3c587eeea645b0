#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Foundation/Value.h"

namespace varo::binary {

/// The input of the download of a record's binary column:
/// - the entries of `config`, the caller's configuration; its authorization token also becomes a
///   header;
/// - the entries of `additional`, which win over those of `config`;
/// - entries of the library's own, which win over both: no configuration turns the download into a
///   stream or an online download. Where the file will be is a setting.
[[nodiscard]] platform::Dictionary downloadInput(const platform::Dictionary& config,
                                                 const platform::Dictionary& additional,
                                                 const platform::Dictionary& primaryKeys,
                                                 const OperationSettings& settings);

}  // namespace varo::binary
