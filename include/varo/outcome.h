#pragma once

#include "varo/failure.h"

#include <exception>
#include <functional>
#include <optional>
#include <type_traits>
#include <utility>
#include <variant>

namespace varo {

/// What `Outcome::value` throws where there is a failure instead.
class BadOutcome final : public std::exception {
 public:
  explicit BadOutcome(Failure failure) : failure_(std::move(failure)) {}
  [[nodiscard]] const char* what() const noexcept override { return failure_.message.c_str(); }
  [[nodiscard]] const Failure& error() const noexcept { return failure_; }

 private:
  Failure failure_;
};

/// A `T`, or the `Failure` that prevented it. Has the interface of C++23's `std::expected`.
///
/// One difference: of an outcome that is about to go, `*`, `value()` and `error()` give what is in
/// it and no reference to it. So `for (const auto& record : *files.list().get())` is sound.
///
/// Nothing of the library throws one: only `value()`, for programs that want an exception.
/// Precondition of `*` and `->`: there is a value; of `error()`: there is none.
template <typename T>
class [[nodiscard]] Outcome {
 public:
  using value_type = T;
  using error_type = Failure;

  Outcome(T value) : content_(std::in_place_index<0>, std::move(value)) {}
  Outcome(Failure failure) : content_(std::in_place_index<1>, std::move(failure)) {}

  [[nodiscard]] bool has_value() const noexcept { return content_.index() == 0; }
  explicit operator bool() const noexcept { return has_value(); }

  [[nodiscard]] T& operator*() & noexcept { return *std::get_if<0>(&content_); }
  [[nodiscard]] const T& operator*() const& noexcept { return *std::get_if<0>(&content_); }
  [[nodiscard]] T operator*() && noexcept { return std::move(*std::get_if<0>(&content_)); }
  [[nodiscard]] T* operator->() noexcept { return std::get_if<0>(&content_); }
  [[nodiscard]] const T* operator->() const noexcept { return std::get_if<0>(&content_); }

  [[nodiscard]] Failure& error() & noexcept { return *std::get_if<1>(&content_); }
  [[nodiscard]] const Failure& error() const& noexcept { return *std::get_if<1>(&content_); }
  [[nodiscard]] Failure error() && noexcept { return std::move(*std::get_if<1>(&content_)); }

  /// Throws `BadOutcome` where there is a failure.
  [[nodiscard]] T& value() & { return has_value() ? **this : throw BadOutcome(error()); }
  [[nodiscard]] const T& value() const& { return has_value() ? **this : throw BadOutcome(error()); }
  /// By value, so that a loop over `transfer.get().value()` has something that lives.
  [[nodiscard]] T value() && {
    return has_value() ? *std::move(*this) : throw BadOutcome(std::move(*this).error());
  }

  template <typename U>
  [[nodiscard]] T value_or(U&& otherwise) const& {
    return has_value() ? **this : static_cast<T>(std::forward<U>(otherwise));
  }
  template <typename U>
  [[nodiscard]] T value_or(U&& otherwise) && {
    return has_value() ? *std::move(*this) : static_cast<T>(std::forward<U>(otherwise));
  }

  /// `next` of the value, which gives an `Outcome`; else the failure.
  template <typename F>
  [[nodiscard]] auto and_then(F&& next) && -> std::invoke_result_t<F, T&&> {
    if (has_value()) return std::invoke(std::forward<F>(next), *std::move(*this));
    return std::move(*this).error();
  }
  /// An `Outcome` of what `change` makes of the value; else the failure.
  template <typename F>
  [[nodiscard]] auto transform(F&& change) && -> Outcome<std::invoke_result_t<F, T&&>> {
    if (has_value()) return std::invoke(std::forward<F>(change), *std::move(*this));
    return std::move(*this).error();
  }
  /// The value; else what `next` makes of the failure, an `Outcome` of the same type.
  template <typename F>
  [[nodiscard]] Outcome or_else(F&& next) && {
    if (has_value()) return std::move(*this);
    return std::invoke(std::forward<F>(next), std::move(*this).error());
  }

 private:
  std::variant<T, Failure> content_;
};

/// Success without a value, or the `Failure` that prevented it.
template <>
class [[nodiscard]] Outcome<void> {
 public:
  using value_type = void;
  using error_type = Failure;

  Outcome() = default;
  Outcome(Failure failure) : failure_(std::move(failure)) {}

  [[nodiscard]] bool has_value() const noexcept { return !failure_.has_value(); }
  explicit operator bool() const noexcept { return has_value(); }
  /// Throws `BadOutcome` where there is a failure.
  void value() const {
    if (failure_) throw BadOutcome(*failure_);
  }

  [[nodiscard]] const Failure& error() const& noexcept { return *failure_; }
  [[nodiscard]] Failure error() && noexcept { return *std::move(failure_); }

 private:
  std::optional<Failure> failure_;
};

}  // namespace varo
