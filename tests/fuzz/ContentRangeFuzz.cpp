#include "Binary/Binary/Utils/ContentRange.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

/// Whatever a server sends: nothing, or positions that are in order and within the total.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view field(reinterpret_cast<const char*>(bytes), size);
  const auto range = varo::binary::ContentRange::parse(field);
  if (!range) return 0;
  const auto& [span, total] = *range;
  if (total && *total < 0) std::abort();
  if (!span) return 0;
  if (span->first < 0 || span->last < span->first) std::abort();
  if (total && span->last >= *total) std::abort();
  return 0;
}
