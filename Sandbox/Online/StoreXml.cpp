#include "Sandbox/Online/StoreXml.h"

#include "Platform/Foundation/Text.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace varo::sandbox {
namespace {

std::string xmlText(std::string_view text) {
  std::string result;
  for (const char c : platform::sanitizeUtf8(text)) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '<') {
      result += "&lt;";
    } else if (c == '>') {
      result += "&gt;";
    } else if (c == '&') {
      result += "&amp;";
    } else if (c == '"') {
      result += "&quot;";
    } else if (byte < ' ' && c != '\n' && c != '\t') {
      result += fmt::format("&#x{:x};", byte);
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace

std::string xmlElement(std::string_view name, std::string_view text) {
  return xmlParent(name, xmlText(text));
}

std::string xmlParent(std::string_view name, std::string_view content) {
  return fmt::format("<{0}>{1}</{0}>", name, content);
}

HttpResponse xmlDocument(std::string_view root, std::string_view content) {
  HttpResponse response;
  response.contentType = "application/xml";
  response.text = fmt::format(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<{0} xmlns=\"http://s3.amazonaws.com/doc/2006-03-01/\">{1}</{0}>",
      root, content);
  return response;
}

std::string xmlTime(std::chrono::sys_seconds time) {
  return fmt::format("{:%Y-%m-%dT%H:%M:%S}.000Z", fmt::gmtime(time.time_since_epoch().count()));
}

}  // namespace varo::sandbox
