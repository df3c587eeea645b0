#pragma once

#include <string>

namespace varo::sandbox {

/// 32 hexadecimal digits that nobody has seen before.
[[nodiscard]] std::string randomName();

}  // namespace varo::sandbox
