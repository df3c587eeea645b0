#include "Sandbox/Files/TemplateKind.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

template <typename Choice>
bool choose(const json::value& value, std::string_view first, std::string_view second,
            Choice& choice) {
  if (!value.is_string()) return false;
  const std::string_view text = value.get_string();
  if (text != first && text != second) return false;
  choice = static_cast<Choice>(text == first ? 0 : 1);
  return true;
}

bool chooseChunked(const json::value& value, std::optional<bool>& chunked) {
  if (!value.is_bool() && !value.is_null()) return false;
  chunked = value.is_null() ? std::nullopt : std::optional(value.get_bool());
  return true;
}

bool apply(std::string_view key, const json::value& value, TemplateKind& kind) {
  if (key == "domain") return choose(value, "service", "store", kind.domain);
  if (key == "uploadMode") return choose(value, "binary", "multipart", kind.mode);
  if (key == "method") return choose(value, "put", "post", kind.method);
  return key == "chunkupload" && chooseChunked(value, kind.chunked);
}

std::string_view modeName(TemplateKind::Mode mode) {
  return mode == TemplateKind::Mode::kBinary ? "binary" : "multipart";
}

}  // namespace

std::optional<TemplateKind> templateKindFrom(const json::object& wish, TemplateKind defaults) {
  for (const auto& [key, value] : wish) {
    if (!apply(key, value, defaults)) return std::nullopt;
  }
  return defaults;
}

std::string textOf(const TemplateKind& kind) {
  json::object object{
      {"domain", kind.domain == TemplateKind::Domain::kService ? "service" : "store"},
      {"uploadMode", modeName(kind.mode)},
      {"method", methodName(kind.method)}};
  object["chunkupload"] = kind.chunked ? json::value(*kind.chunked) : json::value(nullptr);
  return json::serialize(object);
}

std::string_view methodName(TemplateKind::Method method) {
  return method == TemplateKind::Method::kPut ? "put" : "post";
}

std::string uploadTemplateText(const TemplateKind& kind, std::string_view domain,
                               std::string_view relativePath) {
  json::object object{{"domain", domain},
                      {"relativepath", relativePath},
                      {"uploadMode", modeName(kind.mode)},
                      {"method", methodName(kind.method)}};
  if (kind.chunked) object["chunkupload"] = *kind.chunked;
  return json::serialize(object);
}

std::string downloadTemplateText(std::string_view domain, std::string_view relativePath) {
  return json::serialize(json::object{{"domain", domain}, {"relativepath", relativePath}});
}

}  // namespace varo::sandbox
