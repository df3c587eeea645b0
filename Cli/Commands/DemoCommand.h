#pragma once

namespace varo::cli {

class Session;

struct DemoOptions {};

/// Takes the user through what the library does, against a sandbox of its own. Returns the exit
/// status: 0 only if everything was as it should be.
[[nodiscard]] int run(Session& session, const DemoOptions& options);

}  // namespace varo::cli
