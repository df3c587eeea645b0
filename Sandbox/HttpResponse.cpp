#include "Sandbox/HttpResponse.h"

#include "Sandbox/ByteRange.h"

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace varo::sandbox {

HttpResponse errorResponse(int opstatus, std::string_view message, int httpStatus) {
  HttpResponse response;
  response.status = httpStatus;
  response.text =
      boost::json::serialize(boost::json::value{{"opstatus", opstatus}, {"errmsg", message}});
  return response;
}

HttpResponse fileResponse(const HttpRequest& request, std::shared_ptr<const DiskFile> file,
                          std::uint64_t size, const std::string& entityTag) {
  const std::string* header = request.header("Range");
  const std::string* condition = request.header("If-Range");
  // A condition that no longer holds asks for the new file as a whole.
  const bool ranged = header != nullptr && (condition == nullptr || *condition == entityTag);
  const ByteRange range = parseByteRange(ranged ? *header : "", size);

  HttpResponse response;
  response.headers = {{"Accept-Ranges", "bytes"}, {"ETag", entityTag}};
  response.contentType = "application/octet-stream";
  if (range.kind == ByteRange::Kind::kUnsatisfiable) {
    response.status = 416;
    response.headers.emplace_back("Content-Range", fmt::format("bytes */{}", size));
    return response;
  }
  if (range.kind == ByteRange::Kind::kPart) {
    response.status = 206;
    response.headers.emplace_back(
        "Content-Range",
        fmt::format("bytes {}-{}/{}", range.offset, range.offset + range.length - 1, size));
  }
  response.file = std::move(file);
  response.fileOffset = range.offset;
  response.fileLength = range.length;
  return response;
}

}  // namespace varo::sandbox
