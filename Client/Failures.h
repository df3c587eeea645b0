#pragma once

#include "Platform/Foundation/Value.h"
#include "varo/failure.h"

#include <string>
#include <string_view>

namespace varo::detail {

/// A failure as an operation of the library tells it: an error, or what a failure block gets.
/// `about` begins the sentence and names the file, key or address: 'upload of "photo.jpg"'.
[[nodiscard]] Failure failureFrom(const platform::Value& told, std::string_view about);

/// A failure that the client found itself.
[[nodiscard]] Failure failureOf(Kind kind, std::string message);

}  // namespace varo::detail
