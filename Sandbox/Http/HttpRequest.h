#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
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

  std::optional<std::uint64_t> contentLength;
  bool chunked = false;
  bool expectsContinue = false;
  bool keepAlive = true;
  bool fromLoopback = false;

  [[nodiscard]] bool hasBody() const { return chunked || contentLength.value_or(0) > 0; }
  /// The first value under `name` (any letter case), or null.
  [[nodiscard]] const std::string* header(std::string_view name) const;
  /// The first query parameter called `name`, or null.
  [[nodiscard]] const std::string* parameter(std::string_view name) const;
};

/// Why a head was refused: the status to answer with and a sentence.
struct BadRequest {
  int status = 400;
  std::string reason;
};

/// Reads a head: request line and header lines, each ended by CRLF, up to and with the empty line.
[[nodiscard]] std::variant<HttpRequest, BadRequest> parseRequestHead(std::string_view head);

/// Decodes %XX, and "+" to a blank where `plusIsBlank`. A broken escape stands for itself.
[[nodiscard]] std::string percentDecoded(std::string_view text, bool plusIsBlank);

[[nodiscard]] bool equalIgnoringCase(std::string_view a, std::string_view b);

/// The whole of `text` as a decimal number, or nothing.
[[nodiscard]] std::optional<std::uint64_t> parseUnsigned(std::string_view text);

}  // namespace varo::sandbox
