#include "Sandbox/Http/HttpRequest.h"

#include <algorithm>
#include <charconv>

namespace varo::sandbox {
namespace {

constexpr std::size_t kMaxHeaderLines = 200;
// Room for an object's key of 1 KiB with every byte encoded.
constexpr std::size_t kMaxPathLength = 4096;

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool isTokenCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char l = lower(c);
  return l >= 'a' && l <= 'f' ? l - 'a' + 10 : -1;
}

void parseQuery(HttpRequest& request) {
  std::string_view rest = request.query;
  while (!rest.empty()) {
    const std::string_view pair = rest.substr(0, rest.find('&'));
    rest.remove_prefix(std::min(rest.size(), pair.size() + 1));
    if (pair.empty()) continue;
    const std::size_t equals = std::min(pair.find('='), pair.size());
    request.parameters.emplace_back(
        percentDecoded(pair.substr(0, equals), true),
        percentDecoded(pair.substr(std::min(pair.size(), equals + 1)), true));
  }
}

std::optional<BadRequest> parseTarget(std::string_view target, HttpRequest& request) {
  if (target.starts_with("http://")) {
    target.remove_prefix(std::min(target.find('/', 7), target.size()));
  }
  if (!target.starts_with('/')) return BadRequest{400, "the request target is not a path"};
  target = target.substr(0, target.find('#'));
  const std::size_t question = std::min(target.find('?'), target.size());
  if (question > kMaxPathLength) return BadRequest{414, "the path is too long"};
  request.path = percentDecoded(target.substr(0, question), false);
  request.query = target.substr(std::min(target.size(), question + 1));
  parseQuery(request);
  return std::nullopt;
}

std::optional<BadRequest> parseRequestLine(std::string_view line, HttpRequest& request) {
  const std::size_t first = line.find(' ');
  const std::size_t last = line.rfind(' ');
  if (first == std::string_view::npos || first == last) {
    return BadRequest{400, "the request line is not valid"};
  }
  const std::string_view version = line.substr(last + 1);
  if (version != "HTTP/1.1" && version != "HTTP/1.0") {
    return BadRequest{505, "only HTTP/1.0 and HTTP/1.1 are served"};
  }
  request.keepAlive = version == "HTTP/1.1";
  request.method = line.substr(0, first);
  if (!isToken(request.method)) return BadRequest{400, "the method is not valid"};
  const std::string_view target = line.substr(first + 1, last - first - 1);
  if (target.find(' ') != std::string_view::npos) {
    return BadRequest{400, "the request target holds a blank"};
  }
  return parseTarget(target, request);
}

std::optional<BadRequest> parseHeaderLine(std::string_view line, HttpRequest& request) {
  const std::size_t colon = line.find(':');
  if (colon == std::string_view::npos || !isToken(line.substr(0, colon))) {
    return BadRequest{400, "a header line is not valid"};
  }
  const std::string_view value = trimmed(line.substr(colon + 1));
  if (value.find_first_of(std::string_view("\0\r\n", 3)) != std::string_view::npos) {
    return BadRequest{400, "a header value is not valid"};
  }
  if (request.headers.size() == kMaxHeaderLines) return BadRequest{431, "too many header lines"};
  request.headers.emplace_back(line.substr(0, colon), value);
  return std::nullopt;
}

// Whatever could make two readers disagree about where the body ends is refused.
std::optional<BadRequest> interpretHeaders(HttpRequest& request) {
  for (const auto& [name, value] : request.headers) {
    if (equalIgnoringCase(name, "Content-Length")) {
      const auto length = parseUnsigned(value);
      if (!length || request.contentLength.value_or(*length) != *length) {
        return BadRequest{400, "Content-Length is not valid"};
      }
      request.contentLength = length;
    } else if (equalIgnoringCase(name, "Transfer-Encoding")) {
      if (!equalIgnoringCase(value, "chunked")) {
        return BadRequest{501, "only the transfer coding \"chunked\" is served"};
      }
      request.chunked = true;
    } else if (equalIgnoringCase(name, "Content-Encoding")) {
      if (!equalIgnoringCase(value, "identity")) {
        return BadRequest{415, "compressed bodies are not accepted"};
      }
    } else if (equalIgnoringCase(name, "Connection")) {
      if (equalIgnoringCase(value, "close")) request.keepAlive = false;
    } else if (equalIgnoringCase(name, "Expect")) {
      request.expectsContinue = equalIgnoringCase(value, "100-continue");
    }
  }
  if (request.chunked && request.contentLength) {
    return BadRequest{400, "Content-Length and Transfer-Encoding exclude each other"};
  }
  return std::nullopt;
}

}  // namespace

const std::string* findField(const FieldList& fields, std::string_view name) {
  const auto found = std::find_if(fields.begin(), fields.end(), [name](const auto& field) {
    return equalIgnoringCase(field.first, name);
  });
  return found == fields.end() ? nullptr : &found->second;
}

const std::string* HttpRequest::header(std::string_view name) const {
  return findField(headers, name);
}

const std::string* HttpRequest::parameter(std::string_view name) const {
  const auto found = std::find_if(parameters.begin(), parameters.end(),
                                  [name](const auto& field) { return field.first == name; });
  return found == parameters.end() ? nullptr : &found->second;
}

std::variant<HttpRequest, BadRequest> parseRequestHead(std::string_view head) {
  HttpRequest request;
  bool isRequestLine = true;
  while (!head.empty()) {
    const std::size_t end = head.find("\r\n");
    if (end == std::string_view::npos) return BadRequest{400, "a line does not end in CRLF"};
    const std::string_view line = head.substr(0, end);
    head.remove_prefix(end + 2);
    if (line.empty()) break;
    auto problem = isRequestLine ? parseRequestLine(line, request) : parseHeaderLine(line, request);
    if (problem) return *std::move(problem);
    isRequestLine = false;
  }
  if (isRequestLine) return BadRequest{400, "there is no request line"};
  if (auto problem = interpretHeaders(request)) return *std::move(problem);
  return request;
}

std::string percentDecoded(std::string_view text, bool plusIsBlank) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexDigit(text[i + 1]) >= 0 &&
        hexDigit(text[i + 2]) >= 0) {
      decoded.push_back(static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2])));
      i += 2;
    } else {
      decoded.push_back(plusIsBlank && text[i] == '+' ? ' ' : text[i]);
    }
  }
  return decoded;
}

bool equalIgnoringCase(std::string_view a, std::string_view b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [](char x, char y) { return lower(x) == lower(y); });
}

std::optional<std::uint64_t> parseUnsigned(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || text.empty()) return {};
  return number;
}

}  // namespace varo::sandbox
