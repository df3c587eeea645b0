#include "Cli/Failures/ClientFailure.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Cli/Failures/CommandErrors.h"
#include "Client/Failures.h"

#include <chrono>
#include <memory>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

constexpr char kKind[] = "kind";
constexpr char kRetryable[] = "retryable";
constexpr char kRetryAfter[] = "retryAfter";

FailureFacts factsOf(const Failure& failure) {
  FailureFacts facts{
      std::string(nameOf(failure.kind)), failure.httpStatus, failure.isWorthRetrying(), {}};
  if (failure.retryAfter) {
    facts.retryAfter = std::chrono::ceil<std::chrono::seconds>(*failure.retryAfter);
  }
  return facts;
}

/// Of the command line's own errors, which the client does not know.
Kind kindOfOwn(std::int64_t code) {
  switch (code) {
    case kCodeInterrupted:
    case kCodeNotConfirmed:
      return Kind::kCancelled;
    case kCodeSilent:
      return Kind::kNotOurService;
    default:
      return Kind::kOther;
  }
}

}  // namespace

ErrorPtr errorOf(const Failure& failure) {
  const FailureFacts facts = factsOf(failure);
  Dictionary details{{std::string(platform::kLocalizedDescriptionKey), failure.message},
                     {kKind, facts.kind},
                     {kRetryable, facts.isRetryable}};
  if (facts.httpStatus) details.set(binary::kHttpStatusCode, *facts.httpStatus);
  if (facts.retryAfter) details.set(kRetryAfter, facts.retryAfter->count());
  if (failure.serviceStatus) details.set(binary::kOpStatus, *failure.serviceStatus);
  if (!failure.responseExcerpt.empty()) {
    details.set(binary::kResponseBody, failure.responseExcerpt);
  }
  if (!failure.requestId.empty()) details.set("requestId", failure.requestId);
  if (failure.begun) details.set("begun", failure.begun->text());
  if (failure.upload) details.set("upload", failure.upload->text());
  // What the client has found itself has no cause below.
  const bool isOwn = failure.cause.domain.empty();
  return std::make_shared<const platform::Error>(
      isOwn ? std::string(kClientErrorDomain) : failure.cause.domain,
      isOwn ? kCodeFoundByClient : failure.cause.code, std::move(details));
}

ErrorPtr commandError(std::int64_t code, std::string message, std::string kind, bool isRetryable) {
  return std::make_shared<const platform::Error>(
      std::string(kCommandLineErrorDomain), code,
      Dictionary{{std::string(platform::kLocalizedDescriptionKey), std::move(message)},
                 {kKind, std::move(kind)},
                 {kRetryable, isRetryable}});
}

FailureFacts factsOf(const Value& failure) {
  const ErrorPtr error = failure.error();
  const bool isOwn = error != nullptr && error->domain() == kCommandLineErrorDomain;
  if (isOwn && !error->userInfo().contains(kKind)) {
    return factsOf(detail::failureOf(kindOfOwn(error->code()), {}));
  }
  if (error == nullptr || !error->userInfo().contains(kKind)) {
    return factsOf(detail::failureFrom(failure, {}));
  }
  const Dictionary& details = error->userInfo();
  FailureFacts facts{details[kKind].textValue(), {}, details[kRetryable].boolValue(), {}};
  if (details.contains(binary::kHttpStatusCode)) {
    facts.httpStatus = static_cast<int>(details[binary::kHttpStatusCode].integerValue());
  }
  if (details.contains(kRetryAfter)) {
    facts.retryAfter = std::chrono::seconds(details[kRetryAfter].integerValue());
  }
  return facts;
}

}  // namespace varo::cli
