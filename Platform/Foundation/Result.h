#pragma once

#include <cassert>
#include <memory>
#include <optional>
#include <utility>

namespace varo::platform {

class Error;
/// Errors are immutable and shared; a null pointer means "no error".
using ErrorPtr = std::shared_ptr<const Error>;

/// A `T` or the error that prevented it.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : value_(std::move(value)) {}        // NOLINT(google-explicit-constructor)
  Result(ErrorPtr error) : error_(std::move(error)) {  // NOLINT(google-explicit-constructor)
    assert(error_ != nullptr);
  }

  [[nodiscard]] bool ok() const noexcept { return value_.has_value(); }
  explicit operator bool() const noexcept { return ok(); }

  /// Precondition of the four: `ok()`.
  [[nodiscard]] T& value() & { return *value_; }
  [[nodiscard]] const T& value() const& { return *value_; }
  [[nodiscard]] T&& value() && { return *std::move(value_); }
  [[nodiscard]] const T& operator*() const& { return *value_; }
  [[nodiscard]] const T* operator->() const { return &*value_; }

  /// Null exactly when `ok()`.
  [[nodiscard]] const ErrorPtr& error() const noexcept { return error_; }

 private:
  std::optional<T> value_;
  ErrorPtr error_;
};

/// Success without a value, or an error.
template <>
class [[nodiscard]] Result<void> {
 public:
  Result() = default;
  Result(ErrorPtr error) : error_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  [[nodiscard]] bool ok() const noexcept { return error_ == nullptr; }
  explicit operator bool() const noexcept { return ok(); }
  [[nodiscard]] const ErrorPtr& error() const noexcept { return error_; }

 private:
  ErrorPtr error_;
};

}  // namespace varo::platform
