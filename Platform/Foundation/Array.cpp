#include "Platform/Foundation/Array.h"

#include "Platform/Foundation/NeverDestroyed.h"
#include "Platform/Foundation/Value.h"

#include <algorithm>

namespace varo::platform {

Array::Array() noexcept = default;
Array::Array(std::initializer_list<Value> values) : Array(std::vector<Value>(values)) {}
Array::Array(std::vector<Value> values) {
  if (!values.empty()) storage_.write() = std::move(values);
}
Array::Array(const Array&) noexcept = default;
Array::Array(Array&&) noexcept = default;
Array& Array::operator=(const Array&) noexcept = default;
Array& Array::operator=(Array&&) noexcept = default;
Array::~Array() = default;

std::size_t Array::size() const noexcept {
  const auto* values = storage_.read();
  return values != nullptr ? values->size() : 0;
}

const Value& Array::operator[](std::size_t index) const noexcept {
  static NeverDestroyed<Value> missing;
  return index < size() ? (*storage_.read())[index] : missing.get();
}

void Array::append(Value value) { storage_.write().push_back(std::move(value)); }

Array::const_iterator Array::begin() const noexcept {
  const auto* values = storage_.read();
  return values != nullptr ? values->data() : nullptr;
}

Array::const_iterator Array::end() const noexcept { return begin() + size(); }

bool operator==(const Array& left, const Array& right) {
  return left.storage_.sharesWith(right.storage_) ||
         std::equal(left.begin(), left.end(), right.begin(), right.end());
}

}  // namespace varo::platform
