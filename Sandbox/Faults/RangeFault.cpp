#include "Sandbox/Faults/RangeFault.h"

#include "Platform/Foundation/Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <string_view>

namespace varo::sandbox {
namespace {

constexpr std::string_view kRange = "Range";
constexpr std::string_view kUnit = "bytes=";

struct Positions {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
};

std::optional<Positions> positionsIn(std::string_view value) {
  if (!startsIgnoringCase(value, kUnit)) return std::nullopt;
  value.remove_prefix(kUnit.size());
  const std::size_t dash = std::min(value.find('-'), value.size());
  const auto first = parseUnsigned(value.substr(0, dash));
  const auto last = parseUnsigned(value.substr(std::min(dash + 1, value.size())));
  if (!first || !last || *last < *first) return std::nullopt;
  return Positions{*first, *last};
}

// Stops at both ends of the numbers.
std::uint64_t shifted(std::uint64_t position, std::int64_t by) {
  if (by < 0)
    // Negated as an unsigned number: the smallest signed one has no counterpart.
    return position - std::min(position, std::uint64_t{0} - static_cast<std::uint64_t>(by));
  const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - position;
  return position + std::min(room, static_cast<std::uint64_t>(by));
}

}  // namespace

std::optional<HttpRequest> bentRequest(const HttpRequest& request, const FaultAction& action) {
  const std::string* value = request.header(kRange);
  if (value == nullptr) return std::nullopt;
  std::string bent;
  if (!action.ignoreRange) {
    if (action.shiftRange == 0 && !action.shortenRange) return std::nullopt;
    auto positions = positionsIn(*value);
    // "-n" and "n-" have no two ends to move. They reach the service as they are.
    if (!positions) return std::nullopt;
    if (action.shortenRange) {
      const std::uint64_t length =
          // Both ends are inclusive, so n bytes end n - 1 behind the first.
          std::min(positions->last - positions->first, *action.shortenRange - 1);
      positions->last = positions->first + length;
    }
    bent = fmt::format("{}{}-{}", kUnit, shifted(positions->first, action.shiftRange),
                       shifted(positions->last, action.shiftRange));
  }
  HttpRequest result = request;
  // All of them: a second Range header would otherwise take effect in place of the first.
  std::erase_if(result.headers,
                [](const auto& field) { return platform::equalIgnoringCase(field.first, kRange); });
  if (!bent.empty()) result.headers.emplace_back(kRange, std::move(bent));
  return result;
}

void bendTotal(HttpResponse& response, const FaultAction& action) {
  if (!action.total) return;
  for (auto& [name, value] : response.headers) {
    if (!platform::equalIgnoringCase(name, "Content-Range")) continue;
    value = value.substr(0, value.rfind('/') + 1) + *action.total;
  }
}

}  // namespace varo::sandbox
