#include "Sandbox/Online/StoreError.h"

#include "Sandbox/Online/SignatureV4.h"
#include "Sandbox/Online/StoreXml.h"
#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/RandomName.h"

#include <fmt/format.h>

namespace varo::sandbox {

StoreError storeErrorOf(const WriteProblem& problem) {
  if (problem.opstatus == kInternal) return {500, "InternalError", problem.reason};
  if (problem.opstatus == kWrongState) return {409, "OperationAborted", problem.reason};
  const bool isForm = problem.opstatus == kWrongUploadMode;
  return {400, isForm ? "MalformedPOSTRequest" : "IncompleteBody", problem.reason};
}

HttpResponse xmlResponse(const StoreError& error, const HttpRequest& request) {
  std::string elements = xmlElement("Code", error.code) + xmlElement("Message", error.message);
  for (const auto& [name, text] : error.details) elements += xmlElement(name, text);
  elements += xmlElement("Resource", sigv4::uriEncoded(request.path, sigv4::Slash::kKept));
  const std::string requestId = randomName();
  elements += xmlElement("RequestId", requestId);
  HttpResponse response;
  response.status = error.status;
  response.contentType = "application/xml";
  response.headers.emplace_back(kRequestIdHeader, requestId);
  response.text =
      fmt::format("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<Error>{}</Error>", elements);
  return response;
}

}  // namespace varo::sandbox
