#include "Client/C/CValues.h"

#include "Client/C/GivenStruct.h"

#include <span>
#include <utility>
#include <variant>

namespace varo::capi {

namespace {

/// One entry; which it is goes before what is wrong with it.
Outcome<Filter::Term> termFrom(const varo_entry& entry, const std::string& which) {
  if (entry.name == nullptr) return invalid(which + " has no name");
  const std::string name = entry.name;
  switch (entry.type) {
    case VARO_BOOLEAN:
      return Filter::Term(name, entry.boolean != 0);
    case VARO_INTEGER:
      return Filter::Term(name, entry.integer);
    case VARO_NUMBER:
      return Filter::Term(name, entry.number);
    case VARO_TEXT:
      if (entry.text == nullptr) return invalid(which + ", \"" + name + "\", has no text");
      if (entry.text_length == 0) return Filter::Term(name, std::string(entry.text));
      return Filter::Term(name, std::string(entry.text, entry.text_length));
    default:
      break;
  }
  return invalid(which + ", \"" + name + "\", has the unknown type " +
                 std::to_string(static_cast<int>(entry.type)));
}

/// Calls `use` for each term, which says what is wrong with it.
template <typename Use>
Outcome<void> forEachTerm(const varo_entry* entries, std::size_t count, const char* argument,
                          Use use) {
  if (entries == nullptr && count > 0) return missing(argument);
  for (std::size_t at = 0; at < count; ++at) {
    const std::string which = std::string(argument) + "[" + std::to_string(at) + "]";
    auto term = termFrom(entries[at], which);
    if (!term) return std::move(term).error();
    if (Outcome<void> used = use(*std::move(term), which); !used) return used;
  }
  return {};
}

}  // namespace

std::string textFrom(const char* text) { return text != nullptr ? text : std::string(); }

Outcome<Filter> filterFrom(const varo_entry* terms, std::size_t count) {
  Filter filter;
  const auto add = [&filter](Filter::Term term, const std::string& /*which*/) -> Outcome<void> {
    filter = std::move(filter) && (field(std::move(term.first)) == std::move(term.second));
    return {};
  };
  if (auto all = forEachTerm(terms, count, "terms", add); !all) return std::move(all).error();
  return filter;
}

Outcome<Metadata> metadataFrom(const varo_entry* entries, std::size_t count, const char* argument) {
  Metadata metadata;
  const auto add = [&metadata](Filter::Term term, const std::string& which) -> Outcome<void> {
    if (metadata.contains(term.first)) {
      return invalid(which + ", \"" + term.first + "\", was given before");
    }
    metadata.insert(std::move(term));
    return {};
  };
  if (auto all = forEachTerm(entries, count, argument, add); !all) return std::move(all).error();
  return metadata;
}

Outcome<std::map<std::string, std::string>> pairsFrom(const varo_pair* pairs, std::size_t count,
                                                      const char* argument) {
  if (pairs == nullptr && count > 0) return missing(argument);
  std::map<std::string, std::string> all;
  for (const varo_pair& pair : std::span(pairs, count)) {
    if (pair.name == nullptr || pair.value == nullptr) {
      return invalid(std::string(argument) + " has a pair without name or value");
    }
    if (!all.emplace(pair.name, pair.value).second) {
      return invalid(std::string(argument) + " has \"" + pair.name + "\" twice");
    }
  }
  return all;
}

std::vector<varo_entry> entriesOf(const Metadata& metadata) {
  std::vector<varo_entry> entries;
  entries.reserve(metadata.size());
  for (const auto& [key, scalar] : metadata) {
    const char* name = key.c_str();
    if (const auto* text = std::get_if<std::string>(&scalar)) {
      entries.push_back(varo_text(name, text->c_str()));
      entries.back().text_length = text->size();
    } else if (const auto* integer = std::get_if<std::int64_t>(&scalar)) {
      entries.push_back(varo_integer(name, *integer));
    } else if (const auto* number = std::get_if<double>(&scalar)) {
      entries.push_back(varo_number(name, *number));
    } else {
      entries.push_back(varo_boolean(name, std::get<bool>(scalar) ? 1 : 0));
    }
  }
  return entries;
}

}  // namespace varo::capi
