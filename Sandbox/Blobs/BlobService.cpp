#include "Sandbox/Blobs/BlobService.h"

#include "Sandbox/Blobs/Base64Answer.h"
#include "Sandbox/ServiceProtocol.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <optional>
#include <span>
#include <utility>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

constexpr const char* kLogLevelHeader = "X-Pelmar-Device-Log-Level";

/// A column may be called "type" or "clientid", too, so it is the place that tells: the primary
/// keys stand before the last "type=bytes", what concerns the client behind it.
std::optional<BlobKey> blobKeyOf(const HttpRequest& request) {
  const auto& parameters = request.parameters;
  const auto type =
      std::find(parameters.rbegin(), parameters.rend(), FieldList::value_type("type", "bytes"));
  if (type == parameters.rend()) return std::nullopt;
  return BlobKey{
      request.pathArguments[0], request.pathArguments[1], {parameters.begin(), type.base() - 1}};
}

HttpResponse base64Response(const BlobCatalog::Found& found) {
  const Base64Answer answer(found.bytes, found.size);
  HttpResponse response;
  response.contentLength = answer.length();
  response.content = [answer](std::uint64_t offset, std::span<char> buffer) {
    return answer.read(offset, buffer);
  };
  return response;
}

HttpResponse responseTo(const HttpRequest& request, const BlobCatalog::Found& found) {
  using Mode = BlobObject::Mode;
  const BlobObject& object = found.object;
  if (object.mode == Mode::kError) {
    HttpResponse response;
    response.text = json::serialize(
        json::object{{"d", json::object{{"error", true}, {"msg", object.message}}}});
    return response;
  }
  if (!found.bytes) return errorResponse(kNotFound, "this object has no bytes", 404);
  if (object.mode == Mode::kBase64) return base64Response(found);
  Content content{found.bytes, found.size, found.entityTag};
  if (object.mode == Mode::kWhole) return wholeResponse(std::move(content));
  return rangeResponse(request, std::move(content),
                       object.mode == Mode::kKnownTotal ? TotalSize::kTold : TotalSize::kHidden);
}

}  // namespace

BlobService::BlobService(const BlobCatalog& blobs) : blobs_(blobs) {}

void BlobService::registerRoutes(Router& router) {
  router.add("GET", fmt::format("{}{}*/*/binary", kServicesPath, kBlobsPath),
             [this](const HttpRequest& request, RequestBody&) { return download(request); });
}

HttpResponse BlobService::download(const HttpRequest& request) const {
  const auto key = blobKeyOf(request);
  if (!key) return errorResponse(kBadParameter, "\"type\" must be \"bytes\"", 400);
  const auto found = blobs_.find(*key);
  if (!found) return errorResponse(kNotFound, "there is no such object", 404);
  HttpResponse response = responseTo(request, *found);
  if (!found->object.logLevel.empty()) {
    response.headers.emplace_back(kLogLevelHeader, found->object.logLevel);
  }
  return response;
}

}  // namespace varo::sandbox
