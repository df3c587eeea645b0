#include "Sandbox/Files/FilterParser.h"

#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>

namespace varo::sandbox {
namespace {

constexpr std::size_t kMaxTerms = 64;

class Scanner {
 public:
  explicit Scanner(std::string_view text) : rest_(text) {}

  [[nodiscard]] bool atEnd() const { return rest_.empty(); }
  [[nodiscard]] std::string_view rest() const { return rest_; }
  void advance(std::size_t count) { rest_.remove_prefix(count); }

  /// Skips blanks and says whether there were any.
  bool blanks() {
    const std::size_t count = std::min(rest_.find_first_not_of(" \t\r\n"), rest_.size());
    advance(count);
    return count > 0;
  }

  std::string_view word() {
    const auto end = std::find_if_not(rest_.begin(), rest_.end(), [](char c) {
      return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
             c == '_' || c == '-' || c == '.' || c == '+';
    });
    const auto found = rest_.substr(0, static_cast<std::size_t>(end - rest_.begin()));
    advance(found.size());
    return found;
  }

  bool keyword(std::string_view wanted) {
    const Scanner before = *this;
    const bool same = platform::equalIgnoringCase(word(), wanted);
    if (!same) *this = before;
    return same;
  }

 private:
  std::string_view rest_;
};

constexpr std::array<std::string_view, 6> kOperators = {"eq", "ne", "gt", "ge", "lt", "le"};

// Whether a quote before `rest` ends its value: because the text ends, or because another term
// follows, also one that is not served, so that it is refused and not taken for a value.
bool endsValue(std::string_view rest) {
  Scanner scanner(rest);
  const bool separated = scanner.blanks();
  if (scanner.atEnd()) return true;
  return separated && (scanner.keyword("and") || scanner.keyword("or")) && scanner.blanks() &&
         !scanner.word().empty() && scanner.blanks() &&
         std::any_of(kOperators.begin(), kOperators.end(),
                     [&scanner](std::string_view name) { return scanner.keyword(name); });
}

std::optional<std::string> quotedValue(Scanner& scanner) {
  scanner.advance(1);
  std::string value;
  const std::string_view text = scanner.rest();
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\'') {
      if (endsValue(text.substr(i + 1))) {
        scanner.advance(i + 1);
        return value;
      }
      const bool doubled = i + 2 < text.size() && text[i + 1] == '\'';
      if (doubled) ++i;
    }
    value.push_back(text[i]);
  }
  return std::nullopt;
}

}  // namespace

std::variant<Filter, FilterProblem> parseFilter(std::string_view text) {
  Filter filter;
  Scanner scanner(text);
  scanner.blanks();
  while (!scanner.atEnd()) {
    if (filter.size() == kMaxTerms) return FilterProblem{"the filter has too many terms"};
    if (!filter.empty()) {
      if (!scanner.keyword("and")) {
        return FilterProblem{fmt::format("only \"and\" joins terms, found \"{}\"", scanner.word())};
      }
      if (!scanner.blanks()) return FilterProblem{"a term is missing after \"and\""};
    }
    const std::string_view name = scanner.word();
    if (name.empty()) return FilterProblem{"a property name is missing"};
    scanner.blanks();
    if (!scanner.keyword("eq")) {
      return FilterProblem{fmt::format("only \"eq\" compares, found \"{}\"", scanner.word())};
    }
    scanner.blanks();
    std::optional<std::string> value;
    if (scanner.rest().starts_with('\'')) {
      value = quotedValue(scanner);
      if (!value) return FilterProblem{"a value has no closing quote"};
    } else {
      value = scanner.word();
      if (value->empty()) return FilterProblem{"a value is missing"};
    }
    filter.emplace_back(name, *std::move(value));
    const bool separated = scanner.blanks();
    if (!separated && !scanner.atEnd()) return FilterProblem{"a blank is missing after a value"};
  }
  return filter;
}

}  // namespace varo::sandbox
