#pragma once

#include <spawn.h>

namespace varo::platform::system {

/// Has a child of `posix_spawn` begin without the descriptors from `first` on, whether or not they
/// are marked to be closed on exec. Where the system has no such action, it is those that are open
/// now: one that another thread opens meanwhile may stay open. Returns 0, or an errno.
/// Thread-safe.
[[nodiscard]] int closeFrom(::posix_spawn_file_actions_t& actions, int first) noexcept;

}  // namespace varo::platform::system
