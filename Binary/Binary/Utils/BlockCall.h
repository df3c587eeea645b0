#pragma once

#include <functional>

namespace varo::binary {

/// Runs a call of a block of the application; an exception that leaves it is logged and goes no
/// further. Never with a lock held.
void callBlock(const std::function<void()>& call) noexcept;
/// The same without a copy of `call`, for which there may be no memory.
template <typename Call>
void callBlock(const Call& call) noexcept {
  callBlock(std::function<void()>(std::cref(call)));
}

}  // namespace varo::binary
