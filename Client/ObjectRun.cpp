#include "Client/ObjectRun.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Client/Failures.h"
#include "Client/ObjectAnswers.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/RequestAttempts.h"

#include <fmt/format.h>

#include <exception>
#include <utility>

namespace varo::detail {

using platform::Data;
using platform::HttpHeader;
using platform::HttpRequest;
using platform::HttpResponse;

namespace {

/// Can be given up between two pieces: a part may have gigabytes.
platform::Result<std::string> digestOf(const Data& body, const std::stop_token& cancellation) {
  platform::Sha256 hash;
  auto read = body.forEachPiece([&](std::string_view piece) -> platform::Result<void> {
    if (cancellation.stop_requested()) {
      return platform::makeTransportError(platform::HttpTransportError::kCancelled,
                                          "The transfer was cancelled.");
    }
    hash.update(piece);
    return {};
  });
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

Outcome<std::shared_ptr<const ObjectRun>> ObjectRun::begin(std::shared_ptr<const ObjectPlace> place,
                                                           ObjectStops stops,
                                                           std::shared_ptr<RunningBase> running,
                                                           std::function<void(Failure)> fail,
                                                           Direct direct) {
  auto access = place->access();
  if (!access) return std::move(access).error();
  return std::make_shared<const ObjectRun>(std::move(place), *std::move(access), std::move(stops),
                                           std::move(running), std::move(fail), std::move(direct));
}

ObjectRun::ObjectRun(std::shared_ptr<const ObjectPlace> place, ObjectAccess access,
                     ObjectStops stops, std::shared_ptr<RunningBase> running,
                     std::function<void(Failure)> fail, Direct direct)
    : place_(std::move(place)),
      access_(std::move(access)),
      stops_(std::move(stops)),
      running_(std::move(running)),
      fail_(std::move(fail)),
      direct_(std::move(direct)) {}

void ObjectRun::send(ObjectRequest request, const std::stop_token& cancellation,
                     Answer answer) const {
  ObjectRequest asked{.alsoGood = request.alsoGood, .about = request.about};
  auto encodedRequest = encoded(std::move(request), cancellation);
  if (!encodedRequest) return answer(std::move(encodedRequest).error());
  const std::string secret = access_.keys ? access_.keys->sessionToken : std::string();
  const auto with = settings(cancellation);
  static_cast<void>(platform::sendAttempts(
      with->transport, *std::move(encodedRequest), with,
      [asked = std::move(asked), secret, answer = std::move(answer), fail = fail_](
          std::optional<HttpResponse> response, const platform::ErrorPtr& error) {
        try {
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
  if (direct_ != nullptr) {
    direct_(*settings);
  } else {
    settings->retry.reset();
  }
  return settings;
}

Outcome<HttpRequest> ObjectRun::encoded(ObjectRequest request,
                                        const std::stop_token& cancellation) const {
  const ObjectPlace::Address& address = place_->address();
  binary::S3Request toSign{.method = nameOf(request.method),
                           .host = address.host,
                           .path = address.path,
                           .query = std::move(request.query),
                           .headers = std::move(request.headers)};
  if (request.key) toSign.path += "/" + request.key->text();
  if (toSign.path.empty()) toSign.path = "/";
  for (const platform::DictionaryEntry& header : access_.headers) {
    toSign.headers.push_back({header.key, header.value.textValue()});
  }
  HttpRequest encoded;
  encoded.method = request.method;
  encoded.url = address.origin + binary::encodedPath(toSign.path);
  if (!toSign.query.empty()) encoded.url += "?" + binary::encodedQuery(toSign.query);
  encoded.limits = request.limits;
  encoded.spoolDirectory = std::move(request.spoolDirectory);
  encoded.onSent = std::move(request.onSent);
  if (access_.keys) {
    auto digest = digestOf(request.body.value_or(Data()), cancellation);
    if (!digest) return failureFrom(digest.error(), request.about);
    toSign.payloadHash = std::move(digest).value();
    auto headers = binary::S3RequestSigner(*access_.keys, place_->region()).sign(toSign);
    if (!headers) return failureFrom(headers.error(), request.about);
    encoded.headers = std::move(headers).value();
  } else {
    encoded.headers = std::move(toSign.headers);
    // The service's own store.
    if (place_->templates() != nullptr && !access_.token.empty()) {
      encoded.headers.push_back({binary::kVaroAuthorization, access_.token});
    }
  }
  if (request.body) encoded.body = {*std::move(request.body)};
  return encoded;
}

Failure cancelledObject(std::string_view about) {
  return failureOf(Kind::kCancelled, fmt::format("{}: it was cancelled", about));
}

}  // namespace varo::detail
