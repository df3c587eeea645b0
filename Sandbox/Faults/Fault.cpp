#include "Sandbox/Faults/Fault.h"

#include "Sandbox/Http/JsonText.h"

#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <optional>
#include <string_view>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

using std::chrono::milliseconds;

bool readText(const json::value& value, std::string& text) {
  if (value.is_string()) text = value.get_string();
  return value.is_string();
}

bool readFlag(const json::value& value, bool& flag) {
  if (value.is_bool()) flag = value.get_bool();
  return value.is_bool();
}

std::optional<std::int64_t> wholeNumber(const json::value& value) {
  if (value.is_int64()) return value.get_int64();
  return std::nullopt;
}

bool readCount(const json::value& value, std::optional<std::uint64_t>& count) {
  const auto number = wholeNumber(value);
  if (!number || *number < 0) return false;
  count = static_cast<std::uint64_t>(*number);
  return true;
}

bool readMilliseconds(const json::value& value, std::int64_t least, milliseconds& duration) {
  // A day. Much more would overflow where the time is added to a clock's.
  constexpr std::int64_t kLongest = std::int64_t{24} * 60 * 60 * 1000;
  const auto number = wholeNumber(value);
  if (!number || *number < least || *number > kLongest) return false;
  duration = milliseconds(*number);
  return true;
}

bool readStatus(const json::value& value, std::optional<int>& status) {
  const auto number = wholeNumber(value);
  // Below 200 are interim responses (RFC 9110, 15.2), after which a client waits for the real one.
  if (!number || *number < 200 || *number > 999) return false;
  status = static_cast<int>(*number);
  return true;
}

bool readHeaders(const json::value& value, FaultAction& action) {
  if (!value.is_object()) return false;
  for (const auto& [name, text] : value.get_object()) {
    auto& header = action.headers.emplace_back(name, std::nullopt);
    if (!text.is_null() && !readText(text, header.second.emplace())) return false;
  }
  return true;
}

bool readTotal(const json::value& value, std::optional<std::string>& total) {
  total = scalarText(value);
  return total && !value.is_bool();
}

bool readMatchEntry(std::string_view key, const json::value& value, FaultMatch& match) {
  if (key == "method") return readText(value, match.method);
  if (key == "path") return readText(value, match.path);
  if (key == "query") return readText(value, match.query);
  if (key == "listener") return readText(value, match.listener);
  if (key == "ranged") return readFlag(value, match.ranged);
  if (key == "perTarget") return readFlag(value, match.perTarget);
  if (key == "count") return readCount(value, match.count);
  if (key != "skip") return false;
  std::optional<std::uint64_t> skip;
  if (!readCount(value, skip)) return false;
  match.skip = *skip;
  return true;
}

bool readReplacementEntry(std::string_view key, const json::value& value, FaultAction& action) {
  if (key == "status") return readStatus(value, action.status);
  if (key == "body") return readText(value, action.body.emplace());
  if (key == "contentType") return readText(value, action.contentType);
  if (key == "opstatus") return (action.opstatus = wholeNumber(value)).has_value();
  if (key == "errmsg") return readText(value, action.errmsg);
  if (key == "invalidJson") return readFlag(value, action.invalidJson);
  if (key == "location") return readText(value, action.location);
  return key == "noBody" && readFlag(value, action.noBody);
}

bool readRangeEntry(std::string_view key, const json::value& value, FaultAction& action) {
  if (key == "ignoreRange") return readFlag(value, action.ignoreRange);
  if (key == "shortenRange")
    // A Range header cannot name an empty range.
    return readCount(value, action.shortenRange) && *action.shortenRange > 0;
  const auto shift = wholeNumber(value);
  if (key != "shiftRange" || !shift) return false;
  action.shiftRange = *shift;
  return true;
}

bool readActionEntry(std::string_view key, const json::value& value, FaultAction& action) {
  if (key == "latencyMs") return readMilliseconds(value, -1, action.latency);
  if (key == "delayMs") return readMilliseconds(value, -1, action.delay);
  if (key == "newToken") return readText(value, action.newToken.emplace());
  if (key == "cutRequestAfter") return readCount(value, action.cutRequestAfter);
  if (key == "headers") return readHeaders(value, action);
  if (key == "total") return readTotal(value, action.total);
  if (key.ends_with("Range")) return readRangeEntry(key, value, action);
  if (key == "cutAfter") return readCount(value, action.cutAfter);
  if (key == "stallAfter") return readCount(value, action.stallAfter);
  if (key == "stallMs") return readMilliseconds(value, -1, action.stallFor);
  if (key == "drop") return readFlag(value, action.drop);
  if (key == "endlessHeaders") return readFlag(value, action.endlessHeaders);
  return readReplacementEntry(key, value, action);
}

template <typename Target, typename Reader>
std::optional<std::string> readSection(const json::object& object, std::string_view section,
                                       Target& target, Reader readEntry) {
  const json::value* value = object.if_contains(section);
  if (value == nullptr) return std::nullopt;
  if (!value->is_object()) return fmt::format("\"{}\" is not an object", section);
  for (const auto& [key, entry] : value->get_object()) {
    if (!readEntry(key, entry, target)) {
      return fmt::format("\"{}\" of \"{}\" is unknown or has a wrong value", std::string_view(key),
                         section);
    }
  }
  return std::nullopt;
}

}  // namespace

std::variant<FaultRule, std::string> faultRuleFrom(const json::object& object) {
  FaultRule rule;
  if (!object.contains("action")) return "\"action\" is missing";
  if (auto problem = readSection(object, "match", rule.match, readMatchEntry)) {
    return *std::move(problem);
  }
  if (auto problem = readSection(object, "action", rule.action, readActionEntry)) {
    return *std::move(problem);
  }
  return rule;
}

}  // namespace varo::sandbox
