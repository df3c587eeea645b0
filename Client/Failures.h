#pragma once

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"
#include "varo/failure.h"

#include <optional>
#include <string>
#include <string_view>

namespace varo::detail {

/// A failure as an operation of the library tells it: an error, or what a failure block gets.
/// `about` begins the sentence and names the file, key or address: 'upload of "photo.jpg"'.
[[nodiscard]] Failure failureFrom(const platform::Value& told, std::string_view about);

/// Whether no response came to a request that the server may have carried out.
[[nodiscard]] bool mayHaveArrived(const platform::Value& told);

/// `failure` on its way through the layers below: `failureFrom` gives it its kind and message back.
[[nodiscard]] platform::ErrorPtr errorOf(const Failure& failure);

/// Of a request that ended with the status of a response, or an error: what kind of failure that
/// is, none below 400. One that has neither was never sent.
[[nodiscard]] std::optional<Kind> kindOfEnd(std::optional<int> status,
                                            const platform::ErrorPtr& error);

/// A failure that the client found itself.
[[nodiscard]] Failure failureOf(Kind kind, std::string message);

}  // namespace varo::detail
