#include "Sandbox/Http/RequestBody.h"

namespace varo::sandbox {

std::optional<std::string> RequestBody::readText(std::size_t limit) {
  std::string text;
  const End end = readInto([&text, limit](std::string_view piece) {
    if (piece.size() > limit - text.size()) return false;
    text.append(piece);
    return true;
  });
  if (end != End::kComplete) return std::nullopt;
  return text;
}

}  // namespace varo::sandbox
