#include "Sandbox/Files/PlainStore.h"

#include "Sandbox/ServiceProtocol.h"
#include "Sandbox/Storage/BodyReceiver.h"
#include "Sandbox/Storage/DiskWriter.h"

#include <fmt/format.h>

#include <utility>

namespace varo::sandbox {
namespace {

HttpResponse plainError(int status, std::string reason) {
  HttpResponse response;
  response.status = status;
  response.contentType = "text/plain";
  response.text = std::move(reason);
  return response;
}

HttpResponse refusal(const WriteProblem& problem) {
  return plainError(problem.opstatus == kInternal     ? 500
                    : problem.opstatus == kWrongState ? 409
                                                      : 400,
                    problem.reason);
}

}  // namespace

PlainStore::PlainStore(DiskStore& bytes) : bytes_(bytes) {}

void PlainStore::registerRoutes(Router& router) {
  const std::string path = fmt::format("{}*", kStoreObjectsPath);
  const auto writer = [this](const HttpRequest& request, RequestBody& body) {
    return write(request, body);
  };
  router.add("PUT", path, writer);
  router.add("POST", path, writer);
  router.add("GET", path,
             [this](const HttpRequest& request, RequestBody&) { return read(request); });
  router.add("DELETE", path,
             [this](const HttpRequest& request, RequestBody&) { return remove(request); });
}

HttpResponse PlainStore::write(const HttpRequest& request, RequestBody& body) {
  const std::string& key = request.pathArguments.front();
  if (key.empty()) return plainError(400, "the object's name is missing");
  if (request.method == "POST" && !request.hasBody) {
    return plainError(400, "a POST came without bytes");
  }
  const std::string* mode = request.parameter("mode");
  auto writer = mode != nullptr && *mode == "append" ? bytes_.append(key) : bytes_.writeWhole(key);
  if (const auto* problem = std::get_if<WriteProblem>(&writer)) return refusal(*problem);
  DiskWriter& blob = *std::get<std::unique_ptr<DiskWriter>>(writer);
  if (const auto problem = receiveBody(request, body, blob)) return refusal(*problem);
  HttpResponse response;
  // The commit has to show it: it proves to the service that the bytes have reached this store.
  response.headers.emplace_back("ETag", blob.state().entityTag);
  return response;
}

HttpResponse PlainStore::read(const HttpRequest& request) const {
  const auto stored = bytes_.open(request.pathArguments.front());
  if (!stored) return plainError(404, "there is no such object");
  return rangeResponse(request, {stored->bytes, stored->state.size, stored->state.entityTag});
}

HttpResponse PlainStore::remove(const HttpRequest& request) {
  if (!bytes_.remove(request.pathArguments.front())) {
    return plainError(404, "there is no such object");
  }
  HttpResponse response;
  response.status = 204;
  return response;
}

}  // namespace varo::sandbox
