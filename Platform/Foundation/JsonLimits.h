#pragma once

#include <cstddef>
#include <cstdint>

namespace varo::platform {

/// Up to which size a JSON text is turned into values. A text beyond one of the limits is an error
/// that names it, raised as soon as it is met: what is parsed by then is freed.
struct JsonLimits {
  /// Levels of nesting. A parsed text never needs more stack than this, nor does writing it.
  std::size_t depth = 256;
  /// Values of any kind, the containers included. Each takes 40 bytes, an entry of an object 72 and
  /// its texts: 8 Mi entries are about a GiB at worst, and a list of 100,000 records of 80 entries.
  std::uint64_t values = std::uint64_t{8} << 20U;
  /// Length of the text.
  std::uint64_t bytes = std::uint64_t{256} << 20U;
};

/// For lists, the largest responses there are.
inline constexpr JsonLimits kListJsonLimits{};
/// For responses that describe one file or one step: templates, creations, commits, states.
inline constexpr JsonLimits kAnswerJsonLimits{.values = std::uint64_t{64} << 10U,
                                              .bytes = std::uint64_t{1} << 20U};
/// For templates that are filled with the caller's values, which may be long.
inline constexpr JsonLimits kFilledJsonLimits{.values = kAnswerJsonLimits.values};

}  // namespace varo::platform
