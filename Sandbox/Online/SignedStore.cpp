#include "Sandbox/Online/SignedStore.h"

#include "Sandbox/Online/CheckedBody.h"
#include "Sandbox/Online/ObjectUpload.h"
#include "Sandbox/ServiceProtocol.h"

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace {

constexpr std::size_t kMaxKeyBytes = 1024;

const std::string& keyOf(const HttpRequest& request) { return request.pathArguments.front(); }

/// Operations on anything but one whole object have a query or a header of their own. Whoever asks
/// for one must not get another instead.
std::optional<StoreError> unservedOperation(const HttpRequest& request) {
  const bool hasOperation =
      std::any_of(request.parameters.begin(), request.parameters.end(), [](const auto& parameter) {
        return !startsIgnoringCase(parameter.first, "x-amz-") && parameter.first != "x-id";
      });
  if (hasOperation || keyOf(request).empty() || request.header("x-amz-copy-source") != nullptr) {
    return StoreError{501, "NotImplemented", "Only whole objects are served."};
  }
  if (keyOf(request).size() > kMaxKeyBytes) {
    return StoreError{400, "KeyTooLongError", "A key has 1024 bytes at most."};
  }
  return std::nullopt;
}

StoreError noSuchKey(const HttpRequest& request) {
  return {404, "NoSuchKey", "There is no object under this key.", {{"Key", keyOf(request)}}};
}

StoreError errorOf(const WriteProblem& problem) {
  if (problem.opstatus == kInternal) return {500, "InternalError", problem.reason};
  if (problem.opstatus == kWrongState) return {409, "OperationAborted", problem.reason};
  const bool isForm = problem.opstatus == kWrongUploadMode;
  return {400, isForm ? "MalformedPOSTRequest" : "IncompleteBody", problem.reason};
}

HttpResponse brokenBodyResponse(const HttpRequest& request) {
  return xmlResponse({400, "IncompleteBody", "The body broke off."}, request);
}

HttpResponse wrongDigestResponse(const HttpRequest& request, const std::string& computed) {
  const std::string* promised = request.header("x-amz-content-sha256");
  return xmlResponse({400,
                      "XAmzContentSHA256Mismatch",
                      "The body is not the one that x-amz-content-sha256 promises.",
                      {{"ClientComputedContentSHA256", promised == nullptr ? "" : *promised},
                       {"S3ComputedContentSHA256", computed}}},
                     request);
}

}  // namespace

SignedStore::SignedStore(DiskStore& objects, const SignedStoreOptions& options)
    : objects_(objects), clockOffset_(options.clockOffset), verifier_(options) {}

void SignedStore::registerRoutes(Router& router) {
  const auto add = [this, &router](std::string_view method, Action action) {
    router.add(method, "/**", [this, action](const HttpRequest& request, RequestBody& body) {
      return serve(request, body, action);
    });
  };
  add("PUT", &SignedStore::write);
  add("POST", &SignedStore::write);
  add("GET", &SignedStore::read);
  add("DELETE", &SignedStore::remove);
}

HttpResponse SignedStore::serve(const HttpRequest& request, RequestBody& body, Action action) {
  const auto verdict = verifier_.verify(request, now());
  if (const auto* problem = std::get_if<StoreError>(&verdict)) {
    return xmlResponse(*problem, request);
  }
  // After the signature: whoever may not ask learns nothing of what is served.
  if (const auto problem = unservedOperation(request)) return xmlResponse(*problem, request);
  CheckedBody checked(body, std::get<SignatureVerifier::PayloadHash>(verdict));
  // The digest covers a body that nobody needs, too.
  const bool takesBody = action == &SignedStore::write;
  const auto end = takesBody ? RequestBody::End::kComplete
                             : checked.readInto([](std::string_view) { return true; });
  HttpResponse response = end == RequestBody::End::kComplete ? (this->*action)(request, checked)
                                                             : brokenBodyResponse(request);
  // Whatever the action made of the broken body, this is why it was broken.
  if (checked.wrongDigest()) return wrongDigestResponse(request, *checked.wrongDigest());
  return response;
}

HttpResponse SignedStore::write(const HttpRequest& request, RequestBody& body) {
  const auto received = receiveObject(request, body, objects_, keyOf(request));
  if (const auto* problem = std::get_if<WriteProblem>(&received)) {
    return xmlResponse(errorOf(*problem), request);
  }
  HttpResponse response;
  response.headers.emplace_back("ETag", std::get<ReceivedObject>(received).state.entityTag);
  return response;
}

HttpResponse SignedStore::read(const HttpRequest& request, RequestBody&) {
  const auto stored = objects_.open(keyOf(request));
  if (!stored) return xmlResponse(noSuchKey(request), request);
  HttpResponse response =
      rangeResponse(request, {stored->bytes, stored->state.size, stored->state.entityTag});
  // The headers stay: "Content-Range" tells the size that the client got wrong.
  if (response.status != 416) return response;
  HttpResponse refusal =
      xmlResponse({416, "InvalidRange", "The object has no such bytes."}, request);
  refusal.headers = std::move(response.headers);
  return refusal;
}

HttpResponse SignedStore::remove(const HttpRequest& request, RequestBody&) {
  // Such stores respond with 204 whether there was an object or not, so that a delete can be
  // repeated.
  objects_.discard(keyOf(request));
  HttpResponse response;
  response.status = 204;
  return response;
}

sigv4::Time SignedStore::now() const {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) + clockOffset_;
}

}  // namespace varo::sandbox
