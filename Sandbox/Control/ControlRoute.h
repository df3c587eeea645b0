#pragma once

#include "Sandbox/Http/Router.h"

#include <string_view>

namespace varo::sandbox {

/// Below it lies what a tester says to the sandbox. It is spared faults, token and log, so that
/// nobody locks himself out.
inline constexpr std::string_view kControlPath = "/control/";

/// Adds a route at `kControlPath` and `pattern` that responds to clients on this machine only.
void addControlRoute(Router& router, std::string_view method, std::string_view pattern,
                     Router::Handler handler);

}  // namespace varo::sandbox
