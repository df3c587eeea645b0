#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace varo {

/// One value of a file's metadata.
using Scalar = std::variant<bool, std::int64_t, double, std::string>;

/// What the service keeps about a file beside its bytes, by name.
using Metadata = std::map<std::string, Scalar, std::less<>>;

/// Which files are meant: those whose metadata has all of these values.
///
///   field("owner") == "ann" && field("kind") == 3
///
/// Names and values are quoted by the library, so a value may hold anything.
class Filter {
 public:
  /// All files.
  Filter() = default;

  using Term = std::pair<std::string, Scalar>;
  [[nodiscard]] const std::vector<Term>& terms() const noexcept { return terms_; }
  [[nodiscard]] bool empty() const noexcept { return terms_.empty(); }

  [[nodiscard]] friend Filter operator&&(Filter left, const Filter& right) {
    left.terms_.insert(left.terms_.end(), right.terms_.begin(), right.terms_.end());
    return left;
  }

 private:
  friend Filter operator==(class field left, Scalar right);
  explicit Filter(Term term) { terms_.push_back(std::move(term)); }

  std::vector<Term> terms_;
};

/// An entry of the metadata by its name, to be compared in a `Filter`.
class field {  // NOLINT(readability-identifier-naming): reads as a word of the expression
 public:
  explicit field(std::string name) : name_(std::move(name)) {}

  [[nodiscard]] friend Filter operator==(field left, Scalar right) {
    return Filter(Filter::Term(std::move(left.name_), std::move(right)));
  }

 private:
  std::string name_;
};

}  // namespace varo
