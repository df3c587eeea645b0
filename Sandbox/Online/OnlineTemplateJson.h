#pragma once

#include "Sandbox/Online/OnlineTemplateKind.h"

#include <string>
#include <variant>

namespace varo::sandbox {

/// The kind that `wish` asks for: "uploadMode" (any text), "domain" ("store" or "service"), "auth"
/// ("HMACDigest", "presigned" or "none"), "address" ("endpointUrl" or "domain"), "opstatus" (whole
/// number or null), "status" (200 to 599) and "entries" (an object). Forms go to the service and
/// unsigned unless it says otherwise, all else to the store and signed. The text says which entry
/// is unknown, wrong, or does not go with the others.
[[nodiscard]] std::variant<OnlineTemplateKind, std::string> onlineTemplateKindFrom(
    const boost::json::object& wish);

}  // namespace varo::sandbox
