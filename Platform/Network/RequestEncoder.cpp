#include "Platform/Network/RequestEncoder.h"

#include "Platform/Foundation/Json.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/MultipartEncoder.h"
#include "Platform/Network/UrlEncoding.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace varo::platform {
namespace {

constexpr std::string_view kContentType = "Content-Type";

bool isContentType(const HttpHeader& header) {
  return equalIgnoringCase(header.name, kContentType);
}

/// Text and bytes go out as they are.
std::optional<Data> bytesOf(const Value& body) {
  if (const Data* bytes = body.data()) return *bytes;
  if (const std::string* text = body.text()) return Data::fromBytes(*text);
  return std::nullopt;
}

Result<void> encodeJson(HttpRequest& request, const Value& body) {
  std::optional<Data> bytes = bytesOf(body);
  if (!bytes) {
    auto text = json::serialize(body);
    if (!text) return text.error();
    bytes = Data::fromBytes(std::move(text).value());
  }
  request.body = {*std::move(bytes)};
  // The caller knows better what a text of its own is.
  if (std::none_of(request.headers.begin(), request.headers.end(), isContentType)) {
    request.headers.push_back({std::string(kContentType), "application/json"});
  }
  return {};
}

Result<void> encodeParts(HttpRequest& request, const Value& body) {
  auto encoded = encodeMultipart(body.dictionaryValue());
  if (!encoded) return encoded.error();
  // A caller's has no boundary, or another one than this body has.
  std::erase_if(request.headers, isContentType);
  request.headers.push_back({std::string(kContentType), encoded->contentType});
  request.body = std::move(encoded.value().pieces);
  return {};
}

Result<void> encodeRaw(HttpRequest& request, const Value& body) {
  const Dictionary* dictionary = body.dictionary();
  const bool isEmpty = dictionary != nullptr && dictionary->empty();
  const std::optional<Data> bytes = isEmpty ? Data() : bytesOf(body);
  if (!bytes) {
    return makeTransportError(HttpTransportError::kInvalidBody,
                              "A raw request body is neither bytes nor text.");
  }
  request.body = {*bytes};
  return {};
}

}  // namespace

HttpRequest encodeRequest(HttpMethod method, const std::string& url, const Dictionary& queryParams,
                          const Dictionary& headers) {
  HttpRequest request;
  request.method = method;
  request.url = appendQuery(url, queryParams);
  for (const auto& header : headers) {
    if (!header.value.isNull()) request.headers.push_back({header.key, header.value.textValue()});
  }
  return request;
}

Result<void> encodeBody(HttpRequest& request, RequestType type, const Value& body) {
  request.body.emplace();
  if (body.isMissing()) return {};
  switch (type) {
    case RequestType::kJson:
      return encodeJson(request, body);
    case RequestType::kMultipart:
      return encodeParts(request, body);
    case RequestType::kRaw:
      return encodeRaw(request, body);
  }
  return makeTransportError(HttpTransportError::kInvalidBody, "The request type is unknown.");
}

}  // namespace varo::platform
