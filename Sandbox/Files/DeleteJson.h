#pragma once

#include "Sandbox/Files/DeleteKind.h"

#include <boost/json/object.hpp>

#include <optional>
#include <string_view>

namespace varo::sandbox {

/// The metadata entry by which a file says how it is deleted: an object, or the text of one.
inline constexpr std::string_view kDeleteWish = "sandbox_delete";

/// `defaults` changed as the entries "mode" ("now", "accepted", "never", "boolean", "failing"),
/// "polls", "status" and "opstatus" of `wish` say. Nothing when an entry is unknown or has a value
/// of another kind or range.
[[nodiscard]] std::optional<DeleteKind> deleteKindFrom(const boost::json::object& wish,
                                                       DeleteKind defaults);

/// What `metadata` wishes: `defaults` when it has no wish, nothing when its wish is not valid.
[[nodiscard]] std::optional<DeleteKind> wishedDeleteKind(const boost::json::object& metadata,
                                                         DeleteKind defaults);

}  // namespace varo::sandbox
