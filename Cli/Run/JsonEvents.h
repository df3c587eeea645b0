#pragma once

#include "Platform/Foundation/Value.h"

#include <string>
#include <string_view>

namespace varo::cli {

/// Gives every value a JSON form: bytes as {"length": N}, an error as {"domain", "code",
/// "userInfo"}, a shared object as its description, a number that is not finite and what is missing
/// as null, text that is not UTF-8 with replacement characters. What is nested too deeply for JSON
/// becomes text.
[[nodiscard]] platform::Value jsonForm(const platform::Value& value);

/// One event line, without its newline: {"event": `event`, and the entries of `details`}.
[[nodiscard]] std::string eventLine(std::string_view event, const platform::Dictionary& details);

}  // namespace varo::cli
