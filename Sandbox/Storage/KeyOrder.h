#pragma once

#include <optional>
#include <string>
#include <string_view>

// Keys are in the order of their bytes.

namespace varo::sandbox {

/// The least key behind all that begin with `prefix`; nothing where there is none, as behind all.
[[nodiscard]] inline std::optional<std::string> firstBehindPrefix(std::string_view prefix) {
  // The last byte that can grow does; those behind it are as large as bytes are.
  const std::size_t last = prefix.find_last_not_of('\xFF');
  if (last == std::string_view::npos) return std::nullopt;
  std::string key(prefix.substr(0, last + 1));
  key.back() = static_cast<char>(static_cast<unsigned char>(key.back()) + 1);
  return key;
}

/// The least key behind `key` alone.
[[nodiscard]] inline std::string firstBehindKey(std::string_view key) {
  return std::string(key) + '\0';
}

}  // namespace varo::sandbox
