#include "Platform/Foundation/File.h"
#include "Platform/Foundation/Json.h"
#include "tests/fuzz/Require.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

using varo::platform::Data;
namespace json = varo::platform::json;

/// Whatever the bytes are: a value or an error; a value is the same after writing and reading it
/// (a double may come back as the integer it is), and from a file whatever way it is cut.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  const auto parsed = json::parse(text);
  require(parsed.ok() != (parsed.error() != nullptr));

  static const auto file = varo::platform::File::createUnnamed("/tmp").value();
  require(file->writeAt(0, text).ok());
  const auto fromFile = json::parse(Data::fromFileRegion(file, 0, size));
  require(fromFile.ok() == parsed.ok());
  if (!parsed) return 0;
  require(*fromFile == *parsed);

  const auto written = json::serialize(*parsed);
  require(written.ok());
  const auto again = json::parse(*written);
  require(again.ok());
  require(json::serialize(*again).value() == *written);
  return 0;
}
