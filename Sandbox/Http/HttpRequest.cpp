#include "Sandbox/Http/HttpRequest.h"

#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <charconv>

namespace varo::sandbox {

const std::string* findField(const FieldList& fields, std::string_view name) {
  const auto found = std::find_if(fields.begin(), fields.end(), [name](const auto& field) {
    return platform::equalIgnoringCase(field.first, name);
  });
  return found == fields.end() ? nullptr : &found->second;
}

const std::string* HttpRequest::header(std::string_view name) const {
  return findField(headers, name);
}

const std::string* HttpRequest::parameter(std::string_view name) const {
  const auto found = std::find_if(parameters.begin(), parameters.end(),
                                  [name](const auto& field) { return field.first == name; });
  return found == parameters.end() ? nullptr : &found->second;
}

bool startsIgnoringCase(std::string_view text, std::string_view prefix) {
  return platform::equalIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::optional<std::uint64_t> parseUnsigned(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return {};
  return number;
}

}  // namespace varo::sandbox
