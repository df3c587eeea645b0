#pragma once

#include "Platform/Foundation/Value.h"

#include <cstddef>
#include <string>

namespace varo::cli {

/// One of several things that a command moves side by side.
struct Item {
  /// Tells it from the others, whose names may be the same.
  std::size_t number = 0;
  /// For people.
  std::string name;
  /// For programs: {"file": path}, for example.
  platform::Dictionary identity;
};

}  // namespace varo::cli
