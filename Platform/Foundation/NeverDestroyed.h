#pragma once

#include <type_traits>

namespace varo::platform {

/// A static object whose destructor never runs, so that threads which still run at exit may use it.
/// It needs no memory of its own: where `T` is made without throwing, so is this.
template <typename T>
class NeverDestroyed {
 public:
  NeverDestroyed() noexcept(std::is_nothrow_default_constructible_v<T>) : value_() {}
  ~NeverDestroyed() {}  // leaves `value_` as it is
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  [[nodiscard]] T& get() noexcept { return value_; }

 private:
  union {
    T value_;
  };
};

}  // namespace varo::platform
