#include "Sandbox/Online/SignedStore.h"

#include "Platform/Foundation/Text.h"
#include "Sandbox/Online/CheckedBody.h"
#include "Sandbox/Online/ObjectUpload.h"
#include "Sandbox/Storage/RandomName.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <string_view>
#include <utility>
#include <variant>

namespace varo::sandbox {
namespace {

constexpr std::size_t kMaxKeyBytes = 1024;

StoreError noSuchKey(const HttpRequest& request) {
  return {404, "NoSuchKey", "There is no object under this key.", {{"Key", keyOf(request)}}};
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

/// Whether an "If-Match" names `entityTag` (RFC 9110, 13.1.1).
bool holds(std::string_view condition, std::string_view entityTag) {
  while (!condition.empty()) {
    const std::string_view one = condition.substr(0, condition.find(','));
    const std::string_view tag = platform::trimmed(one);
    if (tag == "*" || tag == entityTag) return true;
    condition.remove_prefix(std::min(condition.size(), one.size() + 1));
  }
  return false;
}

}  // namespace

SignedStore::SignedStore(ObjectStores stores, const SignedStoreOptions& options)
    : objects_(stores.objects),
      options_(options),
      sessionToken_(options.sessionToken),
      verifier_(options, sessionToken_),
      listing_(stores.objects),
      uploads_(stores, options.leastPartBytes),
      operations_(allOperations()) {}

std::vector<StoreOperation> SignedStore::allOperations() {
  std::vector<StoreOperation> all = uploads_.operations();
  all.push_back(listing_.operation());
  const auto writer = [this](const auto& request, auto& body) { return write(request, body); };
  all.push_back({.method = "PUT", .takesBody = true, .run = writer});
  all.push_back({.method = "POST", .takesBody = true, .run = writer});
  all.push_back(
      {.method = "GET", .run = [this](const auto& request, auto&) { return read(request); }});
  all.push_back(
      {.method = "DELETE", .run = [this](const auto& request, auto&) { return remove(request); }});
  return all;
}

void SignedStore::registerRoutes(Router& router) {
  for (const std::string_view method : {"PUT", "POST", "GET", "DELETE"}) {
    router.add(method, "/**", [this](const HttpRequest& request, RequestBody& body) {
      return serve(request, body);
    });
  }
}

void SignedStore::stamp(HttpResponse& response) const {
  // A refusal has its id already, since the body names it, too.
  if (findField(response.headers, kRequestIdHeader) == nullptr) {
    response.headers.emplace_back(kRequestIdHeader, randomName());
  }
  response.headers.emplace_back("Date", sigv4::httpDateOf(now()));
}

HttpResponse SignedStore::serve(const HttpRequest& request, RequestBody& body) {
  const auto verdict = verifier_.verify(request, now());
  if (const auto* problem = std::get_if<StoreError>(&verdict)) {
    return xmlResponse(*problem, request);
  }
  // After the signature: whoever may not ask learns nothing of what is served.
  const auto found =
      std::find_if(operations_.begin(), operations_.end(),
                   [&request](const auto& one) { return one.isAskedForBy(request); });
  const StoreOperation* operation = found == operations_.end() ? nullptr : &*found;
  if (const auto problem = refusalOf(request, operation)) return xmlResponse(*problem, request);
  CheckedBody checked(body, std::get<SignatureVerifier::PayloadHash>(verdict));
  // The digest covers a body that nobody needs, too.
  const auto end = operation->takesBody ? RequestBody::End::kComplete
                                        : checked.readInto([](std::string_view) { return true; });
  HttpResponse response = end == RequestBody::End::kComplete ? operation->run(request, checked)
                                                             : brokenBodyResponse(request);
  // Whatever the operation made of the broken body, this is why it was broken.
  if (checked.wrongDigest()) return wrongDigestResponse(request, *checked.wrongDigest());
  return response;
}

std::optional<StoreError> SignedStore::refusalOf(const HttpRequest& request,
                                                 const StoreOperation* operation) const {
  const bool isServed =
      operation != nullptr && request.header("x-amz-copy-source") == nullptr &&
      (operation->target == StoreOperation::Target::kBucket || !keyOf(request).empty());
  if (!isServed) return StoreError{501, "NotImplemented", "The store has no such operation."};
  if (keyOf(request).size() > kMaxKeyBytes) {
    return StoreError{400, "KeyTooLongError", "A key has 1024 bytes at most."};
  }
  const std::string bucket = keyOf(request).substr(0, keyOf(request).find('/'));
  const auto& buckets = options_.buckets;
  if (buckets.empty() || std::find(buckets.begin(), buckets.end(), bucket) != buckets.end()) {
    return std::nullopt;
  }
  return StoreError{404, "NoSuchBucket", "There is no such bucket.", {{"BucketName", bucket}}};
}

HttpResponse SignedStore::write(const HttpRequest& request, RequestBody& body) {
  const auto received = receiveObject(request, body, objects_, keyOf(request));
  if (const auto* problem = std::get_if<WriteProblem>(&received)) {
    return xmlResponse(storeErrorOf(*problem), request);
  }
  HttpResponse response;
  response.headers.emplace_back("ETag", std::get<ReceivedObject>(received).state.entityTag);
  return response;
}

HttpResponse SignedStore::read(const HttpRequest& request) const {
  const auto stored = objects_.open(keyOf(request));
  if (!stored) return xmlResponse(noSuchKey(request), request);
  const std::string* condition = request.header("If-Match");
  if (condition != nullptr && !holds(*condition, stored->state.entityTag)) {
    return xmlResponse({412,
                        "PreconditionFailed",
                        "The object is another one than If-Match names.",
                        {{"Condition", "If-Match"}}},
                       request);
  }
  HttpResponse response =
      rangeResponse(request, {stored->bytes, stored->state.size, stored->state.entityTag});
  response.headers.emplace_back("Last-Modified", sigv4::httpDateOf(stored->state.modified));
  // The headers stay: "Content-Range" tells the size that the client got wrong.
  if (response.status != 416) return response;
  HttpResponse refusal =
      xmlResponse({416, "InvalidRange", "The object has no such bytes."}, request);
  std::move(response.headers.begin(), response.headers.end(), std::back_inserter(refusal.headers));
  return refusal;
}

HttpResponse SignedStore::remove(const HttpRequest& request) {
  // Such stores respond with 204 whether there was an object or not, so that a delete can be
  // repeated.
  objects_.discard(keyOf(request));
  HttpResponse response;
  response.status = 204;
  return response;
}

sigv4::Time SignedStore::now() const {
  return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) +
         options_.clockOffset;
}

}  // namespace varo::sandbox
