#include "Sandbox/Online/StoreError.h"

#include "Sandbox/Online/SignatureV4.h"
#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

#include <string_view>

namespace varo::sandbox {
namespace {

/// As an element's text. What XML has no form for, or what may be no UTF-8, becomes "?".
std::string xmlText(std::string_view text) {
  std::string result;
  for (const char c : text) {
    const bool isText = (c >= ' ' && c < 0x7F) || c == '\n' || c == '\t';
    if (c == '<') {
      result += "&lt;";
    } else if (c == '>') {
      result += "&gt;";
    } else if (c == '&') {
      result += "&amp;";
    } else {
      result += isText ? c : '?';
    }
  }
  return result;
}

std::string element(std::string_view name, std::string_view text) {
  return fmt::format("<{0}>{1}</{0}>", name, xmlText(text));
}

}  // namespace

HttpResponse xmlResponse(const StoreError& error, const HttpRequest& request) {
  std::string elements = element("Code", error.code) + element("Message", error.message);
  for (const auto& [name, text] : error.details) elements += element(name, text);
  elements += element("Resource", sigv4::uriEncoded(request.path, sigv4::Slash::kKept));
  elements += element("RequestId", randomName());
  HttpResponse response;
  response.status = error.status;
  response.contentType = "application/xml";
  response.text =
      fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error>{}</Error>", elements);
  return response;
}

}  // namespace varo::sandbox
