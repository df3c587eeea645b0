#pragma once

#include <cstdint>

namespace varo::bench {

/// How often this process has called fdatasync or fsync, SQLite's calls among them. A program that
/// asks for it has both functions of its own, which count. Thread-safe.
[[nodiscard]] std::int64_t syncCount() noexcept;

}  // namespace varo::bench
