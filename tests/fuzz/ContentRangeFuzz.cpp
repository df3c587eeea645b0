#include "Binary/Binary/Utils/ContentRange.h"
#include "tests/fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

/// Whatever a server sends: nothing, or positions that are in order and within the total.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view field(reinterpret_cast<const char*>(bytes), size);
  const auto range = varo::binary::ContentRange::parse(field);
  if (!range) return 0;
  const auto& [span, total] = *range;
  require(!total || *total >= 0);
  if (!span) return 0;
  require(span->first >= 0 && span->last >= span->first);
  require(!total || span->last < *total);
  return 0;
}
