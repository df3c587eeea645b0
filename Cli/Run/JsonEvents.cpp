#include "Cli/Run/JsonEvents.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"

#include <cmath>
#include <utility>

namespace varo::cli {

using platform::Array;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

/// Some levels below the serialiser's limit: an event wraps what it reports.
constexpr std::size_t kDeepest = platform::json::kMaxDepth - 8;

Value form(const Value& value, std::size_t depth);

Dictionary formOfEntries(const Dictionary& dictionary, std::size_t depth) {
  Dictionary result;
  for (const auto& entry : dictionary) {
    result.set(platform::sanitizeUtf8(entry.key), form(entry.value, depth));
  }
  return result;
}

Value form(const Value& value, std::size_t depth) {
  if (const std::string* text = value.text()) return platform::sanitizeUtf8(*text);
  if (const platform::Data* data = value.data()) return Dictionary{{"length", data->size()}};
  if (const double* real = value.real()) return std::isfinite(*real) ? value : Value(nullptr);
  if (value.isMissing()) return nullptr;
  if (value.object() != nullptr) return platform::sanitizeUtf8(value.description());

  const bool nests = value.isArray() || value.isDictionary() || value.error() != nullptr;
  if (!nests) return value;
  // As text and not as an error: the event that reports it must come out in any case.
  if (depth >= kDeepest) return platform::sanitizeUtf8(value.description());
  if (const Dictionary* dictionary = value.dictionary()) {
    return formOfEntries(*dictionary, depth + 1);
  }
  if (const ErrorPtr error = value.error()) {
    return Dictionary{{"domain", platform::sanitizeUtf8(error->domain())},
                      {"code", error->code()},
                      {"userInfo", formOfEntries(error->userInfo(), depth + 2)}};
  }
  Array result;
  for (const Value& element : *value.array()) result.append(form(element, depth + 1));
  return result;
}

}  // namespace

Value jsonForm(const Value& value) { return form(value, 0); }

std::string eventLine(std::string_view event, const Dictionary& details) {
  Dictionary line{{"event", event}};
  line.addEntries(formOfEntries(details, 1));
  line.set("event", event);  // whatever the details say; the key keeps its place in front
  const auto text = platform::json::serialize(line);
  // Everything has a JSON form by now; should that ever fail, the script still gets a line.
  if (!text) return platform::json::serialize(Dictionary{{"event", event}}).value();
  return *text;
}

}  // namespace varo::cli
