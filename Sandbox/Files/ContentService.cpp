#include "Sandbox/Files/ContentService.h"

#include "Platform/Foundation/Text.h"
#include "Sandbox/Files/TemplateKind.h"
#include "Sandbox/Http/JsonText.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/BodyReceiver.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

#include <utility>

namespace varo::sandbox {
namespace json = boost::json;
namespace {

TemplateKind kindOf(const FileRecord& record) {
  const auto object = parseJsonObject(record.kind).value_or(json::object());
  return templateKindFrom(object, {}).value_or(TemplateKind{});
}

// A file that was given a security key is only for those who know it.
bool knowsSecurityKey(const HttpRequest& request, const FileRecord& record) {
  const auto metadata = parseJsonObject(record.metadata).value_or(json::object());
  const std::string key = textUnder(metadata, "security_key").value_or("");
  const std::string* shown = request.parameter("security_key");
  return key.empty() || (shown != nullptr && *shown == key);
}

// Whether the request is of the kind that the upload template asked for.
std::optional<WriteProblem> checkForm(const HttpRequest& request, const TemplateKind& kind,
                                      std::uint64_t sequence) {
  const auto refuse = [](std::string reason) {
    return WriteProblem{kWrongUploadMode, std::move(reason)};
  };
  if (kind.domain != TemplateKind::Domain::kService) {
    return refuse("the bytes of this file go to the outside store");
  }
  if (!platform::equalIgnoringCase(request.method, methodName(kind.method))) {
    return refuse(fmt::format("the upload template says \"{}\"", methodName(kind.method)));
  }
  const bool multipart = kind.mode == TemplateKind::Mode::kMultipart;
  if (multipart != isMultipart(request)) {
    return refuse(multipart ? "the upload template says \"multipart\", the body is none"
                            : "the upload template says \"binary\", the body is multipart");
  }
  if (!multipart && kind.method == TemplateKind::Method::kPost && !request.hasBody) {
    return refuse("a binary POST came without bytes");
  }
  if (!kind.chunked.value_or(true) && sequence > 1) {
    return refuse("the upload template says that the file goes in one piece");
  }
  return std::nullopt;
}

HttpResponse notFound(std::string_view id, int httpStatus = 200) {
  return errorResponse(kNotFound, fmt::format("there is no file \"{}\"", id), httpStatus);
}

HttpResponse refusal(const WriteProblem& problem) {
  return errorResponse(problem.opstatus, problem.reason);
}

}  // namespace

ContentService::ContentService(RecordDatabase& records, DiskStore& bytes)
    : records_(records), bytes_(bytes) {}

void ContentService::registerRoutes(Router& router) {
  const std::string path = fmt::format("{}{}{}*", kServicesPath, kStoragePath, kBytesPath);
  const auto uploader = [this](const HttpRequest& request, RequestBody& body) {
    return upload(request, body);
  };
  router.add("PUT", path, uploader);
  router.add("POST", path, uploader);
  router.add("GET", path,
             [this](const HttpRequest& request, RequestBody&) { return download(request); });
}

HttpResponse ContentService::upload(const HttpRequest& request, RequestBody& body) {
  const std::string& id = request.pathArguments.front();
  const std::string* text = request.parameter("chunk_sequence");
  // Without a number it is the first chunk: a client that sends all at once need not count.
  const auto sequence = text == nullptr ? 1 : parseUnsigned(*text);
  if (!sequence) return errorResponse(kBadParameter, "\"chunk_sequence\" is not a number");

  const auto record = records_.find(id);
  if (!record) return notFound(id);
  if (record->committed) return errorResponse(kWrongState, "the file is committed already");
  if (!knowsSecurityKey(request, *record)) {
    return errorResponse(kForbidden, "\"security_key\" is missing or wrong");
  }
  if (const auto problem = checkForm(request, kindOf(*record), *sequence)) return refusal(*problem);

  auto writer = bytes_.writeChunk(id, *sequence);
  if (const auto* problem = std::get_if<WriteProblem>(&writer)) return refusal(*problem);
  // A delete between the look at the record and this writer found no bytes to discard.
  if (!records_.find(id)) return notFound(id);
  DiskWriter& blob = *std::get<std::unique_ptr<DiskWriter>>(writer);
  if (const auto problem = receiveBody(request, body, blob)) return refusal(*problem);
  HttpResponse response;
  response.text = json::serialize(json::object{
      {"opstatus", 0}, {"httpStatusCode", 200}, {"bytes_received", blob.state().size}});
  return response;
}

HttpResponse ContentService::download(const HttpRequest& request) const {
  const std::string* type = request.parameter("type");
  if (type == nullptr || *type != "bytes") {
    return errorResponse(kBadParameter, "\"type\" must be \"bytes\"", 400);
  }
  const std::string& id = request.pathArguments.front();
  const auto record = records_.find(id);
  if (!record || !record->committed) {
    // By the HTTP status, other than for an upload: a client would store a 200's body as the file.
    return notFound(id, 404);
  }
  if (!knowsSecurityKey(request, *record)) {
    return errorResponse(kForbidden, "\"security_key\" is missing or wrong", 403);
  }
  const auto stored = bytes_.open(id);
  if (!stored) return errorResponse(kNotFound, "the bytes of this file are not here", 404);
  return rangeResponse(request, {stored->bytes, stored->state.size, stored->state.entityTag});
}

}  // namespace varo::sandbox
