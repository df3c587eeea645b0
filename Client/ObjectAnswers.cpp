#include "Client/ObjectAnswers.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Client/Failures.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/TimeText.h"
#include "Platform/Foundation/Value.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace varo::detail {

using platform::Dictionary;
using platform::HttpResponse;
namespace xml = platform::xml;

namespace {

constexpr std::string_view kStoreDomain = "ObjectStore";
/// Of an answer that is looked at for an error.
constexpr std::uint64_t kLongestRefusal = std::uint64_t{64} << 10U;
/// Of the text that a store gives with a refusal.
constexpr std::size_t kShownMessage = 300;

std::optional<Kind> kindOfCode(std::string_view code) {
  static constexpr std::array<std::pair<std::string_view, Kind>, 38> kKinds = {{
      {"NoSuchBucket", Kind::kNotFound},
      {"NoSuchKey", Kind::kNotFound},
      {"NoSuchUpload", Kind::kNotFound},
      {"NoSuchVersion", Kind::kNotFound},
      {"AccessDenied", Kind::kUnauthorized},
      {"AllAccessDisabled", Kind::kUnauthorized},
      {"AuthorizationHeaderMalformed", Kind::kUnauthorized},
      {"ExpiredToken", Kind::kUnauthorized},
      {"InvalidAccessKeyId", Kind::kUnauthorized},
      {"InvalidToken", Kind::kUnauthorized},
      {"RequestTimeTooSkewed", Kind::kUnauthorized},
      {"SignatureDoesNotMatch", Kind::kUnauthorized},
      {"TokenRefreshRequired", Kind::kUnauthorized},
      {"BandwidthLimitExceeded", Kind::kThrottled},
      {"RequestLimitExceeded", Kind::kThrottled},
      {"SlowDown", Kind::kThrottled},
      {"Throttling", Kind::kThrottled},
      {"ThrottlingException", Kind::kThrottled},
      {"TooManyRequests", Kind::kThrottled},
      {"RequestTimeout", Kind::kTimeout},
      {"BucketAlreadyExists", Kind::kConflict},
      {"ConditionalRequestConflict", Kind::kConflict},
      {"InvalidObjectState", Kind::kConflict},
      {"OperationAborted", Kind::kConflict},
      {"PreconditionFailed", Kind::kConflict},
      {"BadDigest", Kind::kIntegrity},
      {"IncompleteBody", Kind::kIntegrity},
      {"InvalidPart", Kind::kIntegrity},
      {"InvalidPartOrder", Kind::kIntegrity},
      {"XAmzContentSHA256Mismatch", Kind::kIntegrity},
      {"EntityTooLarge", Kind::kInvalidArgument},
      {"EntityTooSmall", Kind::kInvalidArgument},
      {"InvalidArgument", Kind::kInvalidArgument},
      {"InvalidBucketName", Kind::kInvalidArgument},
      {"InvalidRange", Kind::kInvalidArgument},
      {"KeyTooLongError", Kind::kInvalidArgument},
      {"InternalError", Kind::kServer},
      {"ServiceUnavailable", Kind::kServer},
  }};
  const auto* found = std::find_if(kKinds.begin(), kKinds.end(),
                                   [code](const auto& known) { return known.first == code; });
  return found != kKinds.end() ? std::optional(found->second) : std::nullopt;
}

/// While a store works, it may send blanks to keep the connection, where XML begins with none.
platform::Result<xml::Element> parse(std::string_view text) {
  return xml::parse(platform::trimmed(text));
}

/// The "Error" that a response is; none where it is something else.
std::optional<xml::Element> errorIn(const HttpResponse& response) {
  if (!response.body || response.body->empty()) return std::nullopt;
  const auto text = response.body->readAll(kLongestRefusal);
  if (!text) return std::nullopt;
  auto parsed = parse(*text);
  if (!parsed || parsed->name != "Error") return std::nullopt;
  return std::move(parsed).value();
}

/// A failure that knows what the response's status and headers say.
Failure failureAt(const HttpResponse& response, std::string_view about, std::string_view secret) {
  Dictionary headers;
  for (const platform::HttpHeader& header : response.headers)
    headers.set(header.name, header.value);
  // Stores repeat in a refusal what was signed.
  const Dictionary sent{{"X-Amz-Security-Token", std::string(secret)}};
  const std::string excerpt =
      response.body ? platform::excerptOf(*response.body, secret.empty() ? Dictionary() : sent)
                    : std::string();
  Failure failure = failureFrom(
      platform::Value(std::make_shared<const platform::Error>(
          std::string(kStoreDomain), response.status,
          Dictionary{{std::string(platform::kLocalizedDescriptionKey),
                      fmt::format("The store responded with status {}", response.status)},
                     {binary::kHttpStatusCode, response.status},
                     {binary::kResponseBody, excerpt},
                     {binary::kResponseHeaders, headers}})),
      about);
  failure.requestId = headerOf(response, "x-amz-request-id").value_or("");
  return failure;
}

}  // namespace

std::optional<std::string> headerOf(const HttpResponse& response, std::string_view name) {
  for (const platform::HttpHeader& header : response.headers) {
    if (platform::equalIgnoringCase(header.name, name)) return header.value;
  }
  return std::nullopt;
}

std::optional<std::uint64_t> sizeIn(std::string_view text) {
  const auto number = platform::parseInteger(text);
  if (!number || *number < 0) return std::nullopt;
  return static_cast<std::uint64_t>(*number);
}

std::string unquoted(std::string_view entityTag) {
  if (entityTag.size() >= 2 && entityTag.front() == '"' && entityTag.back() == '"') {
    entityTag = entityTag.substr(1, entityTag.size() - 2);
  }
  return std::string(entityTag);
}

ObjectInfo infoFrom(const HttpResponse& response, const ObjectKey& key) {
  ObjectInfo info{.key = key};
  info.entityTag = unquoted(headerOf(response, "ETag").value_or(""));
  info.modified = platform::httpTime(headerOf(response, "Last-Modified").value_or(""));
  info.contentType = headerOf(response, "Content-Type").value_or("");
  return info;
}

std::string codeIn(const HttpResponse& response) {
  const auto error = errorIn(response);
  return error ? error->textOf("Code") : std::string();
}

Failure refusalFrom(const HttpResponse& response, std::string_view about, std::string_view secret) {
  Failure failure = failureAt(response, about, secret);
  const auto error = errorIn(response);
  if (!error) return failure;
  const std::string code = error->textOf("Code");
  failure.kind = kindOfCode(code).value_or(failure.kind);
  const std::string said = platform::sanitizeUtf8(
      platform::utf8Prefix(platform::redactSecrets(error->textOf("Message")), kShownMessage));
  failure.message = fmt::format("{}: {} ({})", about, code, said);
  failure.cause.text = fmt::format("{}: {}", code, said);
  if (failure.requestId.empty()) failure.requestId = error->textOf("RequestId");
  return failure;
}

Failure notAStore(const HttpResponse& response, std::string_view about, std::string_view what) {
  Failure failure = failureAt(response, about, {});
  failure.kind = Kind::kNotOurService;
  failure.message = fmt::format("{}: the response is not that of an object store: {}", about, what);
  return failure;
}

Outcome<xml::Element> xmlIn(const HttpResponse& response, std::string_view root,
                            std::string_view about) {
  const auto text = response.body.value_or(platform::Data()).readAll(kLongestAnswer);
  if (!text) return failureFrom(text.error(), about);
  auto parsed = parse(*text);
  if (!parsed) return notAStore(response, about, parsed.error()->localizedDescription());
  if (parsed->name == "Error") return refusalFrom(response, about, {});
  if (parsed->name != root) {
    return notAStore(response, about, fmt::format("no {}, but {}", root, parsed->name));
  }
  return std::move(parsed).value();
}

}  // namespace varo::detail
