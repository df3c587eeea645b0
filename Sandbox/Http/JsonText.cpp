#include "Sandbox/Http/JsonText.h"

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

namespace varo::sandbox {
namespace json = boost::json;

std::optional<json::object> parseJsonObject(std::string_view text) {
  json::error_code error;
  json::value value = json::parse(text, error);
  if (error || !value.is_object()) return std::nullopt;
  return std::move(value.get_object());
}

std::optional<std::string> scalarText(const json::value& value) {
  if (value.is_string()) return std::string(value.get_string());
  if (value.is_bool() || value.is_number()) return json::serialize(value);
  return std::nullopt;
}

std::vector<std::pair<std::string, std::string>> scalarEntries(const json::object& object) {
  std::vector<std::pair<std::string, std::string>> entries;
  for (const auto& [key, value] : object) {
    if (auto text = scalarText(value)) entries.emplace_back(key, *std::move(text));
  }
  return entries;
}

std::optional<std::string> textUnder(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return std::string(value->get_string());
}

std::optional<json::object> objectUnder(const json::object& object, std::string_view key) {
  const json::value* value = object.if_contains(key);
  if (value != nullptr && value->is_object()) return value->get_object();
  const auto text = textUnder(object, key);
  return text ? parseJsonObject(*text) : std::nullopt;
}

}  // namespace varo::sandbox
