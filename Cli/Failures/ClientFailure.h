#pragma once

#include "Cli/Failures/FailureText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "varo/failure.h"

#include <cstdint>
#include <string>

namespace varo::cli {

/// A failure of the typed client as an outcome has it: an error of the domain and code of its
/// cause, with the message as its text and the rest in the user information.
[[nodiscard]] platform::ErrorPtr errorOf(const Failure& failure);

/// An error of the command line itself whose kind and worth of a repeat are known.
[[nodiscard]] platform::ErrorPtr commandError(std::int64_t code, std::string message,
                                              std::string kind, bool isRetryable);

/// What a failure in any shape says of its kind, and whether a repeat is worth it: of one that
/// `errorOf` has made, what the client said, else as the client would judge it.
[[nodiscard]] FailureFacts factsOf(const platform::Value& failure);

}  // namespace varo::cli
