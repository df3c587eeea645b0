#include "Binary/Binary/Utils/ContentRange.h"

#include "Platform/Foundation/Text.h"

namespace varo::binary {
namespace {

constexpr std::string_view kUnit = "bytes";
constexpr std::string_view kUnknown = "*";

/// A number as the field has it: digits alone.
std::optional<std::int64_t> parseNumber(std::string_view text) noexcept {
  // The parser below takes a sign as well.
  if (text.find_first_not_of("0123456789") != std::string_view::npos) return std::nullopt;
  return platform::parseInteger(text);
}

std::optional<ContentRange::Span> parseSpan(std::string_view text) noexcept {
  const std::size_t dash = text.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const auto first = parseNumber(text.substr(0, dash));
  const auto last = parseNumber(text.substr(dash + 1));
  if (!first || !last || *first > *last) return std::nullopt;
  return ContentRange::Span{*first, *last};
}

}  // namespace

std::optional<ContentRange> ContentRange::parse(std::string_view field) noexcept {
  field = platform::trimmed(field);
  if (!platform::equalIgnoringCase(field.substr(0, kUnit.size()), kUnit)) return std::nullopt;
  field.remove_prefix(kUnit.size());
  if (!field.starts_with(' ')) return std::nullopt;
  field = platform::trimmed(field);
  const std::size_t slash = field.find('/');
  if (slash == std::string_view::npos) return std::nullopt;

  ContentRange range;
  const std::string_view span = field.substr(0, slash);
  const std::string_view total = field.substr(slash + 1);
  if (span != kUnknown && !(range.span = parseSpan(span))) return std::nullopt;
  if (total != kUnknown && !(range.total = parseNumber(total))) return std::nullopt;
  if (range.span && range.total && range.span->last >= *range.total) return std::nullopt;
  // "bytes */*" says nothing at all.
  if (!range.span && !range.total) return std::nullopt;
  return range;
}

}  // namespace varo::binary
