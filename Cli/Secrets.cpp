#include "Cli/Secrets.h"

#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Redaction.h"

#include <cstddef>
#include <memory>

namespace varo::cli {

using platform::Array;
using platform::Dictionary;
using platform::DictionaryEntry;
using platform::Error;
using platform::ErrorPtr;
using platform::Value;

namespace {

enum class Texts { kKept, kSearched };

Value clean(const Value& value, Texts texts, std::size_t depth);

Dictionary cleanEntries(const Dictionary& entries, Texts texts, std::size_t depth) {
  Dictionary result;
  for (const DictionaryEntry& entry : entries) {
    const bool isSecret = platform::isSecretKey(entry.key);
    result.set(entry.key, isSecret ? Value(platform::kRedacted) : clean(entry.value, texts, depth));
  }
  return result;
}

/// Of what nests deeper than JSON may, nothing is left.
Value clean(const Value& value, Texts texts, std::size_t depth) {
  if (depth > platform::json::kMaxDepth) return platform::kRedacted;
  if (const Array* elements = value.array()) {
    Array result;
    for (const Value& element : *elements) result.append(clean(element, texts, depth + 1));
    return result;
  }
  if (const Dictionary* entries = value.dictionary()) {
    return cleanEntries(*entries, texts, depth + 1);
  }
  if (const ErrorPtr error = value.error()) {
    return ErrorPtr(std::make_shared<const Error>(
        error->domain(), error->code(),
        cleanEntries(error->userInfo(), Texts::kSearched, depth + 1)));
  }
  const std::string* text = texts == Texts::kSearched ? value.text() : nullptr;
  return text != nullptr ? Value(platform::redactSecrets(*text)) : value;
}

}  // namespace

Value withoutSecrets(const Value& value) { return clean(value, Texts::kKept, 0); }

Value failureWithoutSecrets(const Value& failure) { return clean(failure, Texts::kSearched, 0); }

}  // namespace varo::cli
