#pragma once

#include <boost/json/object.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::sandbox {

/// The JSON object in `text`; nothing for anything else, also for nesting beyond 32 levels.
[[nodiscard]] std::optional<boost::json::object> parseJsonObject(std::string_view text);

/// A scalar as the text that filters compare with; nothing for objects, arrays and null.
[[nodiscard]] std::optional<std::string> scalarText(const boost::json::value& value);

/// The scalar entries of `object` as names and texts.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> scalarEntries(
    const boost::json::object& object);

/// The text under `key`; nothing when there is none or it is not a text.
[[nodiscard]] std::optional<std::string> textUnder(const boost::json::object& object,
                                                   std::string_view key);

/// The object under `key`, or the one in the text there, from tools that know text only.
[[nodiscard]] std::optional<boost::json::object> objectUnder(const boost::json::object& object,
                                                             std::string_view key);

}  // namespace varo::sandbox
