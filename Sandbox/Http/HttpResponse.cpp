#include "Sandbox/Http/HttpResponse.h"

#include "Sandbox/Http/ByteRange.h"

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

#include <utility>

namespace varo::sandbox {

HttpResponse errorResponse(int opstatus, std::string_view message, int httpStatus) {
  HttpResponse response;
  response.status = httpStatus;
  response.text =
      boost::json::serialize(boost::json::value{{"opstatus", opstatus}, {"errmsg", message}});
  return response;
}

HttpResponse wholeResponse(Content content) {
  HttpResponse response;
  response.headers.emplace_back("ETag", std::move(content.entityTag));
  response.contentType = "application/octet-stream";
  response.content = std::move(content.bytes);
  response.contentLength = content.size;
  return response;
}

HttpResponse rangeResponse(const HttpRequest& request, Content content, TotalSize total) {
  const std::string* header = request.header("Range");
  const std::string* condition = request.header("If-Range");
  // A condition that no longer holds asks for the new bytes as a whole.
  const bool ranged =
      header != nullptr && (condition == nullptr || *condition == content.entityTag);
  const std::uint64_t size = content.size;
  const ByteRange range = parseByteRange(ranged ? *header : "", size);

  HttpResponse response = wholeResponse(std::move(content));
  // With the whole, too: it tells a client that a download that breaks off can be resumed.
  response.headers.emplace_back("Accept-Ranges", "bytes");
  if (range.kind == ByteRange::Kind::kWhole) return response;
  // A service that hides the total cannot refuse a range with 416, which would give the size away.
  const bool isTold = total == TotalSize::kTold;
  const bool isEmpty = range.kind == ByteRange::Kind::kUnsatisfiable;
  response.status = isEmpty && isTold ? 416 : 206;
  const std::string part =
      isEmpty ? "*" : fmt::format("{}-{}", range.offset, range.offset + range.length - 1);
  response.headers.emplace_back(
      "Content-Range", fmt::format("bytes {}/{}", part, isTold ? std::to_string(size) : "*"));
  response.contentOffset = range.offset;
  response.contentLength = range.length;
  return response;
}

}  // namespace varo::sandbox
