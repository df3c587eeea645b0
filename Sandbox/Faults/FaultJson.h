#pragma once

#include "Sandbox/Faults/Fault.h"

#include <boost/json/object.hpp>

#include <string>
#include <variant>

namespace varo::sandbox {

/// Reads one rule, `{"match": {...}, "action": {...}}` with the keys of docs/sandbox.md, or says
/// which entry is wrong. Unknown keys are refused, so that a misspelt fault is noticed.
[[nodiscard]] std::variant<FaultRule, std::string> faultRuleFrom(const boost::json::object& object);

}  // namespace varo::sandbox
