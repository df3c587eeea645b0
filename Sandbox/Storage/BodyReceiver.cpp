#include "Sandbox/Storage/BodyReceiver.h"

#include "Sandbox/Http/MultipartReader.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/DiskWriter.h"

namespace varo::sandbox {
std::optional<WriteProblem> problemOf(RequestBody::End end) {
  switch (end) {
    case RequestBody::End::kBroken:
      return WriteProblem{kBadBody, "the body broke off"};
    case RequestBody::End::kTooLarge:
      return WriteProblem{kBadBody, "the body is too large"};
    case RequestBody::End::kComplete:
    case RequestBody::End::kRefused:
      break;
  }
  return std::nullopt;
}

bool isMultipart(const HttpRequest& request) {
  const std::string* type = request.header("Content-Type");
  return type != nullptr && !multipartBoundary(*type).empty();
}

std::optional<WriteProblem> receiveBody(const HttpRequest& request, RequestBody& body,
                                        DiskWriter& writer) {
  bool writerRefused = false;
  const auto write = [&](std::string_view bytes) {
    writerRefused = !writer.write(bytes);
    return !writerRefused;
  };
  bool bodyIsWrong = false;
  RequestBody::End end;
  if (isMultipart(request)) {
    MultipartReader reader(multipartBoundary(*request.header("Content-Type")), write);
    end = body.readInto([&reader](std::string_view piece) { return reader.push(piece); });
    // A reader whose writer refused is not complete either; `finish` has the real reason.
    bodyIsWrong = !reader.complete() && !writerRefused;
  } else {
    end = body.readInto(write);
  }
  if (auto problem = problemOf(end)) return problem;
  if (bodyIsWrong) return WriteProblem{kBadBody, "the body is not one multipart/form-data part"};
  return writer.finish();
}

}  // namespace varo::sandbox
