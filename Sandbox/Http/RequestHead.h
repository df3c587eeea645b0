#pragma once

#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Http/HttpRequest.h"

#include <boost/beast/http/buffer_body.hpp>
#include <boost/beast/http/parser.hpp>

#include <string>
#include <string_view>
#include <variant>

namespace varo::sandbox {

/// Reads one request: first its head, then its body into buffers.
using RequestParser = boost::beast::http::request_parser<boost::beast::http::buffer_body>;

/// Why a head is refused: the status to respond with and a sentence.
struct BadRequest {
  int status = 400;
  std::string reason;
};

/// Reads `head`, which ends with its empty line, with a fresh `parser`, which is then ready for the
/// body. Stricter than the parser alone: what two readers could read differently is refused.
[[nodiscard]] std::variant<HttpRequest, BadRequest> readRequestHead(RequestParser& parser,
                                                                    std::string_view head,
                                                                    const HttpLimits& limits);

}  // namespace varo::sandbox
