#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::sandbox {

/// Names and values in the order in which they arrived.
using FieldList = std::vector<std::pair<std::string, std::string>>;

/// The first value under `name` (any letter case), or null.
[[nodiscard]] const std::string* findField(const FieldList& fields, std::string_view name);

/// The head of one request, as it arrived: header values are not decoded, path and query are.
struct HttpRequest {
  std::string method;
  std::string path;
  std::string query;  ///< Still encoded, without the "?".
  FieldList parameters;
  FieldList headers;
  std::vector<std::string> pathArguments;  ///< Filled by the router, one a placeholder.

  bool hasBody = false;  ///< Of more than no bytes, or of a length that nobody knows yet.
  bool expectsContinue = false;
  bool keepAlive = true;
  bool fromLoopback = false;

  /// The first value under `name` (any letter case), or null.
  [[nodiscard]] const std::string* header(std::string_view name) const;
  /// The first query parameter called `name`, or null.
  [[nodiscard]] const std::string* parameter(std::string_view name) const;
};

/// Whether `text` begins with `prefix`, in any letter case.
[[nodiscard]] bool startsIgnoringCase(std::string_view text, std::string_view prefix);

/// The whole of `text` as a decimal number, or nothing.
[[nodiscard]] std::optional<std::uint64_t> parseUnsigned(std::string_view text);

}  // namespace varo::sandbox
