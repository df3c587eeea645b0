#pragma once

#include "Sandbox/Http/HttpRequest.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace varo::sandbox {

/// How a response is spoilt on its way out.
struct Delivery {
  std::optional<std::uint64_t> cutAfter;  ///< Close the connection after so many body bytes.
  std::optional<std::uint64_t> stallAfter;
  std::chrono::milliseconds stallFor{0};  ///< Negative: until the server stops.
  bool endlessHeaders = false;            ///< Send header lines until the client gives up.
  bool drop = false;                      ///< Close the connection without a byte.
};

/// Reads bytes that a response carries: fills all of `buffer` from byte `offset` on, or returns
/// false. Keeps alive what it reads from. Thread-safe.
using ContentReader = std::function<bool(std::uint64_t offset, std::span<char> buffer)>;

/// One response. The body is `text`, or a region of `content` when that is set.
struct HttpResponse {
  int status = 200;
  std::string contentType = "application/json";
  FieldList headers;
  std::string text;
  ContentReader content;
  std::uint64_t contentOffset = 0;
  std::uint64_t contentLength = 0;
  Delivery delivery;

  [[nodiscard]] std::uint64_t bodyLength() const { return content ? contentLength : text.size(); }
};

/// `{"opstatus": code, "errmsg": message}` under `httpStatus`.
[[nodiscard]] HttpResponse errorResponse(int opstatus, std::string_view message,
                                         int httpStatus = 200);

/// Bytes that a response may carry: the whole of them, `size` long.
struct Content {
  ContentReader bytes;
  std::uint64_t size = 0;
  std::string entityTag;
};

/// What "Content-Range" says of the size of the whole.
enum class TotalSize {
  kTold,
  kHidden,  ///< "*"; a range behind the end is then an empty one, not an error.
};

/// All of the bytes, with status 200.
[[nodiscard]] HttpResponse wholeResponse(Content content);

/// The bytes: all of them, or the part that the request's Range header asks for (206), or 416.
/// Several ranges and units other than bytes get the whole.
[[nodiscard]] HttpResponse rangeResponse(const HttpRequest& request, Content content,
                                         TotalSize total = TotalSize::kTold);

}  // namespace varo::sandbox
