#include "Sandbox/Blobs/BlobObject.h"

#include <boost/json/object.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

// In the order of BlobObject::Mode.
constexpr std::array<std::string_view, 5> kModeNames = {"known", "unknown", "whole", "base64",
                                                        "error"};

bool readMode(const json::value& value, BlobObject::Mode& mode) {
  if (!value.is_string()) return false;
  const std::string_view text = value.get_string();
  const auto name = std::find(kModeNames.begin(), kModeNames.end(), text);
  if (name == kModeNames.end()) return false;
  mode = static_cast<BlobObject::Mode>(name - kModeNames.begin());
  return true;
}

bool readText(const json::value& value, std::string& text) {
  if (!value.is_string()) return false;
  text = value.get_string();
  return true;
}

// Numbers beyond 63 bits come as unsigned ones.
bool readNumber(const json::value& value, std::uint64_t most, std::uint64_t& number) {
  if (value.is_uint64()) {
    number = value.get_uint64();
  } else if (value.is_int64() && value.get_int64() >= 0) {
    number = static_cast<std::uint64_t>(value.get_int64());
  } else {
    return false;
  }
  return number <= most;
}

bool apply(std::string_view key, const json::value& value, BlobObject& object) {
  if (key == "mode") return readMode(value, object.mode);
  if (key == "msg") return readText(value, object.message);
  if (key == "logLevel") return readText(value, object.logLevel);
  if (key != "size" && key != "seed") return false;
  // The order of the entries does not matter; whether a size is among them is checked before.
  if (!object.generated) object.generated.emplace();
  return key == "size" ? readNumber(value, kLargestBlob, object.generated->size)
                       : readNumber(value, UINT64_MAX, object.generated->seed);
}

}  // namespace

std::variant<BlobObject, std::string> blobObjectFrom(const json::object& entries,
                                                     BlobObject object) {
  if (entries.contains("seed") && !entries.contains("size") && !object.generated) {
    return "\"seed\" needs a \"size\"";
  }
  for (const auto& [key, value] : entries) {
    if (!apply(key, value, object)) {
      return fmt::format("\"{}\" is unknown or has a wrong value", std::string_view(key));
    }
  }
  return object;
}

json::object entriesOf(const BlobObject& object) {
  json::object entries{{"mode", kModeNames[static_cast<std::size_t>(object.mode)]},
                       {"msg", object.message},
                       {"logLevel", object.logLevel}};
  if (object.generated) {
    entries["size"] = object.generated->size;
    entries["seed"] = object.generated->seed;
  }
  return entries;
}

}  // namespace varo::sandbox
