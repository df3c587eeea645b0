#pragma once

#include "Platform/Network/NetworkConfiguration.h"

#include <optional>
#include <string>

namespace varo::platform {

/// What is wrong with a configuration. Holds no password.
struct ConfigurationMistake {
  /// Of `NetworkConfiguration`, such as "proxy.url".
  std::string field;
  /// Goes on behind the field's name: "has a path".
  std::string what;
};

/// The first mistake that shows without a connection; whether files are there is not looked at.
/// Thread-safe, but reads the environment where that is asked for.
[[nodiscard]] std::optional<ConfigurationMistake> mistakeIn(
    const NetworkConfiguration& configuration);

}  // namespace varo::platform
