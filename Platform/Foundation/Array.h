#pragma once

#include "Platform/Foundation/CowPtr.h"

#include <cstddef>
#include <initializer_list>
#include <vector>

namespace varo::platform {

class Value;

/// An ordered list of values. Copies share their storage until one of them is changed.
/// Not thread-safe as one instance; copies may be used on different threads.
///
/// A list whose one element is an array is made with `append`: what `Array{array}` means, a list or
/// a copy, compilers read differently (CWG issue 2137).
class Array {
 public:
  using const_iterator = const Value*;

  Array() noexcept;
  Array(std::initializer_list<Value> values);
  explicit Array(std::vector<Value> values);
  Array(const Array&) noexcept;
  Array(Array&&) noexcept;
  Array& operator=(const Array&) noexcept;
  Array& operator=(Array&&) noexcept;
  ~Array();

  [[nodiscard]] std::size_t size() const noexcept;
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }

  /// The element at `index`, or the missing value past the end.
  [[nodiscard]] const Value& operator[](std::size_t index) const noexcept;

  void append(Value value);

  /// Iterators stay valid until this array is changed or destroyed.
  [[nodiscard]] const_iterator begin() const noexcept;
  [[nodiscard]] const_iterator end() const noexcept;

  friend bool operator==(const Array& left, const Array& right);

 private:
  CowPtr<std::vector<Value>> storage_;
};

}  // namespace varo::platform
