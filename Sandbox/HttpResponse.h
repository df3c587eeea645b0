#pragma once

#include "Sandbox/DiskFile.h"
#include "Sandbox/HttpRequest.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
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

/// One answer. The body is `text`, or a region of `file` when that is set.
struct HttpResponse {
  int status = 200;
  std::string contentType = "application/json";
  FieldList headers;
  std::string text;
  std::shared_ptr<const DiskFile> file;
  std::uint64_t fileOffset = 0;
  std::uint64_t fileLength = 0;
  Delivery delivery;

  [[nodiscard]] std::uint64_t bodyLength() const { return file ? fileLength : text.size(); }
};

/// `{"opstatus": code, "errmsg": message}` under `httpStatus`.
[[nodiscard]] HttpResponse errorResponse(int opstatus, std::string_view message,
                                         int httpStatus = 200);

/// The bytes of a stored file of `size` bytes: all of them, or the part that the request's Range
/// header asks for (206), or 416. Several ranges and units other than bytes get the whole file.
[[nodiscard]] HttpResponse fileResponse(const HttpRequest& request,
                                        std::shared_ptr<const DiskFile> file, std::uint64_t size,
                                        const std::string& entityTag);

}  // namespace varo::sandbox
