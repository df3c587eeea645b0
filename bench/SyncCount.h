#pragma once

#include <cstdint>

namespace varo::bench {

/// How often this process has called fdatasync, SQLite's calls among them. A program that asks for
/// it has an fdatasync of its own, which counts. Thread-safe.
[[nodiscard]] std::int64_t syncCount() noexcept;

}  // namespace varo::bench
