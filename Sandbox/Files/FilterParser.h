#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace varo::sandbox {

/// Pairs of property name and wanted value; a record must have them all.
using Filter = std::vector<std::pair<std::string, std::string>>;

/// Why a filter is not served.
struct FilterProblem {
  std::string reason;
};

/// Reads `name eq 'value'`, joined by `and`. A value may also be a bare number, true or false.
///
/// Clients put quotes into values as they are or doubled; both are understood: a quote ends the
/// value only where the filter ends or another term, such as ` and name eq `, follows. An empty
/// filter wants everything.
[[nodiscard]] std::variant<Filter, FilterProblem> parseFilter(std::string_view text);

}  // namespace varo::sandbox
