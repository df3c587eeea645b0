#pragma once

#include "Cli/Demo/DemoStage.h"
#include "Platform/Foundation/Value.h"

#include <string>

namespace varo::cli {

/// Downloads a file of the tour with the library. `options` is its options dictionary.
[[nodiscard]] Outcome downloadFile(DemoStage& stage, const std::string& id,
                                   const platform::Dictionary& headers = DemoStage::headers(),
                                   const platform::Dictionary& options = {});

}  // namespace varo::cli
