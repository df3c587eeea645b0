#pragma once

#include <SQLiteCpp/Statement.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

// What the sandbox's databases have in common.

namespace varo::sandbox {

/// For whoever looks into the file with another tool; the sandbox itself has one connection.
inline constexpr int kBusyTimeoutMs = 5000;

[[nodiscard]] inline std::int64_t toSql(std::uint64_t number) {
  return static_cast<std::int64_t>(number);
}
[[nodiscard]] inline std::uint64_t fromSql(std::int64_t number) {
  return static_cast<std::uint64_t>(number);
}

[[nodiscard]] inline std::int64_t toSql(std::chrono::sys_seconds time) {
  return time.time_since_epoch().count();
}
[[nodiscard]] inline std::chrono::sys_seconds timeFromSql(std::int64_t seconds) {
  return std::chrono::sys_seconds(std::chrono::seconds(seconds));
}

/// A text may hold zero bytes, which the binding of C strings would cut at.
inline void bindText(SQLite::Statement& statement, int index, std::string_view text) {
  statement.bind(index, std::string(text));
}

}  // namespace varo::sandbox
