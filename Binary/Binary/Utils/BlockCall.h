#pragma once

#include <functional>

namespace varo::binary {

/// Runs a call of a block of the application; an exception that leaves it is logged and goes no
/// further. Never with a lock held.
void callBlock(const std::function<void()>& call) noexcept;

}  // namespace varo::binary
