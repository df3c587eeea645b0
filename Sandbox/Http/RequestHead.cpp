#include "Sandbox/Http/RequestHead.h"

#include "Platform/Foundation/PercentCoding.h"
#include "Platform/Foundation/Text.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/beast/http/field.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace varo::sandbox {
namespace http = boost::beast::http;
namespace {

using platform::equalIgnoringCase;

BadRequest refusalOf(const boost::system::error_code& error) {
  if (error == http::error::bad_version) return {505, "only HTTP/1.0 and HTTP/1.1 are served"};
  if (error == http::error::body_limit) return {413, "the body is too large"};
  if (error == http::error::header_limit) return {431, "the request head is too large"};
  return {400, fmt::format("the request head is not valid: {}", error.message())};
}

/// A parameter's name or value, where "+" is a blank.
std::string formDecoded(std::string_view text) {
  std::string blanks(text);
  // Before decoding: a "%2B" is a plus sign and stays one.
  std::replace(blanks.begin(), blanks.end(), '+', ' ');
  return platform::percentDecode(blanks);
}

void readQuery(HttpRequest& request) {
  std::string_view rest = request.query;
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
    if (pair.empty()) continue;
    const std::size_t equals = std::min(pair.find('='), pair.size());
    request.parameters.emplace_back(formDecoded(pair.substr(0, equals)),
                                    formDecoded(pair.substr(std::min(pair.size(), equals + 1))));
  }
}

std::optional<BadRequest> readTarget(std::string_view target, const HttpLimits& limits,
                                     HttpRequest& request) {
  // The form that proxies are sent; every server has to accept it, too (RFC 9112, 3.2.2).
  if (target.starts_with("http://")) {
    target.remove_prefix(std::min(target.find('/', 7), target.size()));
  }
  if (!target.starts_with('/')) return BadRequest{400, "the request target is not a path"};
  target = target.substr(0, target.find('#'));
  const std::size_t question = std::min(target.find('?'), target.size());
  // Counted as sent, so that the limit does not depend on how a key is encoded.
  if (question > limits.pathBytes) return BadRequest{414, "the path is too long"};
  // Only after the query was split off: an encoded "?" belongs to the path.
  request.path = platform::percentDecode(target.substr(0, question));
  request.query = target.substr(std::min(target.size(), question + 1));
  readQuery(request);
  return std::nullopt;
}

std::optional<BadRequest> checkField(http::field name, std::string_view value) {
  // The parser only takes off chunks. Under another coding the bytes
  // stored would not be the file's.
  if (name == http::field::transfer_encoding && !equalIgnoringCase(value, "chunked")) {
    return BadRequest{501, "only the transfer coding \"chunked\" is served"};
  }
  // The same: a compressed body would be stored, and given out again, as if it were the file.
  if (name == http::field::content_encoding && !equalIgnoringCase(value, "identity")) {
    return BadRequest{415, "compressed bodies are not accepted"};
  }
  return std::nullopt;
}

}  // namespace

std::variant<HttpRequest, BadRequest> readRequestHead(RequestParser& parser, std::string_view head,
                                                      const HttpLimits& limits) {
  // The parser joins folded lines, as it may; other readers do not (RFC 9112, 5.2).
  if (head.find("\r\n ") != std::string_view::npos ||
      head.find("\r\n\t") != std::string_view::npos) {
    return BadRequest{400, "a header line is folded"};
  }
  parser.header_limit(static_cast<std::uint32_t>(limits.headBytes));
  parser.body_limit(limits.bodyBytes);
  boost::system::error_code error;
  parser.put(boost::asio::buffer(head), error);
  if (error) return refusalOf(error);

  const auto& message = parser.get();
  HttpRequest request;
  request.method = message.method_string();
  if (auto problem = readTarget(message.target(), limits, request)) return *std::move(problem);
  for (const auto& field : message) {
    if (auto problem = checkField(field.name(), field.value())) return *std::move(problem);
    if (request.headers.size() == limits.headerLines)
      return BadRequest{431, "too many header lines"};
    request.headers.emplace_back(field.name_string(), field.value());
  }
  // After the head alone the parser is done only when no body follows.
  request.hasBody = !parser.is_done();
  request.expectsContinue = equalIgnoringCase(message[http::field::expect], "100-continue");
  // HTTP/1.0 clients may ask to keep the connection; closing it is always allowed and simpler.
  request.keepAlive = message.version() == 11 && parser.keep_alive();
  return request;
}

}  // namespace varo::sandbox
