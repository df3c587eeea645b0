#include "Client/ObjectRun.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Client/Failures.h"
#include "Client/ObjectAnswers.h"
#include "Client/ServiceAuthorizer.h"
#include "Client/SourceData.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Network/RequestAttempts.h"

#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <utility>

namespace varo::detail {

using platform::Data;
using platform::HttpHeader;
using platform::HttpRequest;
using platform::HttpResponse;

namespace {

platform::Result<std::string> digestOf(const Data& body, const std::stop_token& cancellation) {
  platform::Sha256 hash;
  const auto read =
      readPieces(body, cancellation, [&hash](std::string_view piece) { hash.update(piece); });
  if (!read) return read.error();
  const auto digest = hash.finish();
  if (!digest) return digest.error();
  return digest->hex();
}

Outcome<HttpResponse> judged(std::optional<HttpResponse> response, const platform::ErrorPtr& error,
                             const ObjectRequest& asked, std::string_view secret) {
  if (error != nullptr) return failureFrom(error, asked.about);
  if (response->status / 100 == 2 || response->status == asked.alsoGood) {
    return *std::move(response);
  }
  return refusalFrom(*response, asked.about, secret);
}

}  // namespace

Outcome<std::shared_ptr<const ObjectRun>> ObjectRun::begin(
    std::shared_ptr<const ObjectPlace> place, std::shared_ptr<HeldCredentials> credentials,
    ObjectStops stops, std::shared_ptr<RunningBase> running, std::function<void(Failure)> fail,
    Direct direct) {
  const auto shown = credentials->current();
  if (!shown) return shown.error();
  auto access = place->access(**shown);
  if (!access) return std::move(access).error();
  return std::make_shared<const ObjectRun>(std::move(place), std::move(credentials),
                                           *std::move(access), std::move(stops), std::move(running),
                                           std::move(fail), std::move(direct));
}

ObjectRun::ObjectRun(std::shared_ptr<const ObjectPlace> place,
                     std::shared_ptr<HeldCredentials> credentials, ObjectAccess access,
                     ObjectStops stops, std::shared_ptr<RunningBase> running,
                     std::function<void(Failure)> fail, Direct direct)
    : place_(std::move(place)),
      credentials_(std::move(credentials)),
      access_(std::move(access)),
      stops_(std::move(stops)),
      running_(std::move(running)),
      fail_(std::move(fail)),
      direct_(std::move(direct)) {}

void ObjectRun::send(ObjectRequest request, const std::stop_token& cancellation,
                     Answer answer) const {
  ObjectRequest asked{.alsoGood = request.alsoGood, .about = request.about};
  const auto with = settings(cancellation);
  if (request.onRetry != nullptr) {
    with->onRetry = [first = std::move(request.onRetry), then = std::move(with->onRetry)](
                        int attempt, std::chrono::milliseconds wait) {
      first();
      if (then != nullptr) then(attempt, wait);
    };
  }
  auto ready = encoded(std::move(request), cancellation);
  if (!ready) return answer(std::move(ready).error());
  with->authorizer = ready->signer;
  if (ready->signer == nullptr) with->authorizer = serviceAuthorizer();
  static_cast<void>(platform::sendAttempts(
      with->transport, std::move(ready->request), with,
      [asked = std::move(asked), signer = ready->signer, answer = std::move(answer), fail = fail_](
          std::optional<HttpResponse> response, const platform::ErrorPtr& error) {
        try {
          const std::string secret = signer != nullptr ? signer->sessionToken() : std::string();
          answer(judged(std::move(response), error, asked, secret));
        } catch (const std::exception& thrown) {
          fail(failureOf(Kind::kOther, fmt::format("{}: {}", asked.about, thrown.what())));
        }
      }));
}

std::shared_ptr<binary::OperationSettings> ObjectRun::settings(
    const std::stop_token& cancellation) const {
  auto settings = place_->core()->settings();
  settings->cancellation = cancellation;
  settings->noMoreAttempts = stops_.run;
  direct_(*settings);
  return settings;
}

std::shared_ptr<platform::RequestAuthorizer> ObjectRun::serviceAuthorizer() const {
  return access_.token.empty() ? nullptr : std::make_shared<ServiceAuthorizer>(credentials_);
}

Outcome<ObjectRun::Encoded> ObjectRun::encoded(ObjectRequest request,
                                               const std::stop_token& cancellation) const {
  const ObjectPlace::Address& address = place_->address();
  binary::S3Request toSign{.method = nameOf(request.method),
                           .host = address.host,
                           .path = address.path,
                           .query = std::move(request.query),
                           .headers = std::move(request.headers)};
  if (request.key) toSign.path += "/" + request.key->text();
  if (toSign.path.empty()) toSign.path = "/";
  for (const auto& header : access_.headers) {
    toSign.headers.push_back({header.key, header.value.textValue()});
  }
  HttpRequest encoded;
  encoded.method = request.method;
  encoded.url = address.origin + binary::encodedPath(toSign.path);
  if (!toSign.query.empty()) encoded.url += "?" + binary::encodedQuery(toSign.query);
  encoded.limits = request.limits;
  encoded.spoolDirectory = std::move(request.spoolDirectory);
  encoded.receiver = std::move(request.receiver);
  encoded.onSent = std::move(request.onSent);
  encoded.onReceived = std::move(request.onReceived);
  encoded.onHead = std::move(request.onHead);
  std::shared_ptr<StoreAuthorizer> signer;
  if (access_.keys) {
    // Once, and not for each attempt.
    auto digest = digestOf(request.body.value_or(Data()), cancellation);
    if (!digest) return failureFrom(digest.error(), request.about);
    toSign.payloadHash = std::move(digest).value();
    signer = std::make_shared<StoreAuthorizer>(place_, credentials_, std::move(toSign));
  } else {
    encoded.headers = std::move(toSign.headers);
    // The service's own store.
    if (place_->templates() != nullptr && !access_.token.empty()) {
      encoded.headers.push_back({binary::kVaroAuthorization, access_.token});
    }
  }
  if (request.body) encoded.body = {*std::move(request.body)};
  return Encoded{std::move(encoded), std::move(signer)};
}

Failure cancelledObject(std::string_view about) {
  return failureOf(Kind::kCancelled, fmt::format("{}: it was cancelled", about));
}

}  // namespace varo::detail
