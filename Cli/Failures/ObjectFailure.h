#pragma once

#include "Cli/Failures/FailureText.h"
#include "Platform/Foundation/Value.h"

#include <string>

namespace varo::cli {

/// A failure of an online transfer as people read it, with the reason that the service or the store
/// gave, where the library has it. Takes one error, or an array of which the first counts.
[[nodiscard]] FailureText describeObjectFailure(const platform::Value& failure);

/// The code that an S3-compatible store refused a request with, such as "NoSuchKey"; empty where
/// the failure does not have one.
[[nodiscard]] std::string storeErrorCode(const platform::Value& failure);

}  // namespace varo::cli
