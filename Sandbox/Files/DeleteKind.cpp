#include "Sandbox/Files/DeleteKind.h"

#include "Sandbox/Http/JsonText.h"

#include <boost/json/object.hpp>

#include <algorithm>
#include <array>
#include <limits>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

// In the order of DeleteKind::Mode.
constexpr std::array<std::string_view, 5> kModeNames = {"now", "accepted", "never", "boolean",
                                                        "failing"};
constexpr int kMostPolls = 1'000'000;

std::optional<int> numberBetween(const json::value& value, int least, int most) {
  if (!value.is_int64() || value.get_int64() < least || value.get_int64() > most) {
    return std::nullopt;
  }
  return static_cast<int>(value.get_int64());
}

bool readMode(const json::value& value, DeleteKind::Mode& mode) {
  if (!value.is_string()) return false;
  const std::string_view text = value.get_string();
  const auto name = std::find(kModeNames.begin(), kModeNames.end(), text);
  if (name == kModeNames.end()) return false;
  mode = static_cast<DeleteKind::Mode>(name - kModeNames.begin());
  return true;
}

bool apply(std::string_view key, const json::value& value, DeleteKind& kind) {
  if (key == "mode") return readMode(value, kind.mode);
  if (key == "polls") {
    const auto polls = numberBetween(value, 0, kMostPolls);
    kind.polls = static_cast<std::uint32_t>(polls.value_or(0));
    return polls.has_value();
  }
  if (key == "status") return (kind.httpStatus = numberBetween(value, 400, 599)).has_value();
  using Limits = std::numeric_limits<int>;
  return key == "opstatus" &&
         (kind.opstatus = numberBetween(value, Limits::min(), Limits::max())).has_value();
}

}  // namespace

std::optional<DeleteKind> deleteKindFrom(const json::object& wish, DeleteKind defaults) {
  for (const auto& [key, value] : wish) {
    if (!apply(key, value, defaults)) return std::nullopt;
  }
  return defaults;
}

std::optional<DeleteKind> wishedDeleteKind(const json::object& metadata, DeleteKind defaults) {
  if (!metadata.contains(kDeleteWish)) return defaults;
  const auto wish = objectUnder(metadata, kDeleteWish);
  return wish ? deleteKindFrom(*wish, defaults) : std::nullopt;
}

}  // namespace varo::sandbox
