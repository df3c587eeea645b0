#include "Platform/System/SpawnDescriptors.h"

namespace varo::platform::system {

int closeFrom(::posix_spawn_file_actions_t& actions, int first) noexcept {
  return ::posix_spawn_file_actions_addclosefrom_np(&actions, first);
}

}  // namespace varo::platform::system
