#include "Client/C/CFailure.h"

#include "Client/C/GivenStruct.h"
#include "Client/Failures.h"

#include <memory>
#include <new>
#include <utility>

namespace varo::capi {

namespace {

constexpr int codeNumber(Kind kind) { return static_cast<int>(kind) + 1; }

// The numbers are for good: other languages have copies of them.
static_assert(codeNumber(Kind::kCancelled) == VARO_CANCELLED);
static_assert(codeNumber(Kind::kInvalidArgument) == VARO_INVALID_ARGUMENT);
static_assert(codeNumber(Kind::kNoConnection) == VARO_NO_CONNECTION);
static_assert(codeNumber(Kind::kTimeout) == VARO_TIMEOUT);
static_assert(codeNumber(Kind::kTls) == VARO_TLS);
static_assert(codeNumber(Kind::kUnauthorized) == VARO_UNAUTHORIZED);
static_assert(codeNumber(Kind::kNotFound) == VARO_NOT_FOUND);
static_assert(codeNumber(Kind::kConflict) == VARO_CONFLICT);
static_assert(codeNumber(Kind::kThrottled) == VARO_THROTTLED);
static_assert(codeNumber(Kind::kServer) == VARO_SERVER);
static_assert(codeNumber(Kind::kNotOurService) == VARO_NOT_OUR_SERVICE);
static_assert(codeNumber(Kind::kIntegrity) == VARO_INTEGRITY);
static_assert(codeNumber(Kind::kLocalFile) == VARO_LOCAL_FILE);
static_assert(codeNumber(Kind::kDiskFull) == VARO_DISK_FULL);
static_assert(codeNumber(Kind::kDatabase) == VARO_DATABASE);
static_assert(codeNumber(Kind::kShutDown) == VARO_SHUT_DOWN);
static_assert(codeNumber(Kind::kOther) == VARO_OTHER);

template <typename Name>
const char* textOf(const std::optional<Name>& name) {
  return name.has_value() ? name->text().c_str() : "";
}

varo_failure viewOf(const Failure& failure) {
  varo_failure view = {};
  view.size = sizeof view;
  view.code = codeOf(failure.kind);
  view.http_status = failure.httpStatus.value_or(0);
  view.message = failure.message.c_str();
  view.is_worth_retrying = failure.isWorthRetrying() ? 1 : 0;
  view.maybe_done = failure.maybeDone ? 1 : 0;
  view.retry_after_ms = failure.retryAfter ? failure.retryAfter->count() : -1;
  view.service_status = failure.serviceStatus.value_or(0);
  view.has_service_status = failure.serviceStatus ? 1 : 0;
  view.response_excerpt = failure.responseExcerpt.c_str();
  view.response_excerpt_length = failure.responseExcerpt.size();
  view.request_id = failure.requestId.c_str();
  view.begun = textOf(failure.begun);
  view.upload = textOf(failure.upload);
  view.cause_domain = failure.cause.domain.c_str();
  view.cause_text = failure.cause.text.c_str();
  view.cause_code = failure.cause.code;
  view.place = textOf(failure.place);
  return view;
}

}  // namespace

varo_code codeOf(Kind kind) noexcept { return static_cast<varo_code>(codeNumber(kind)); }

OwnedFailure::OwnedFailure(const Failure& failure) : varo_failure{}, texts(failure) {
  static_cast<varo_failure&>(*this) = viewOf(texts);
}

const varo_failure& noMemoryFailure() noexcept {
  static const varo_failure failure = [] {
    varo_failure view = {};
    view.size = sizeof view;
    view.code = VARO_NO_MEMORY;
    view.message = "There is not enough memory";
    view.retry_after_ms = -1;
    view.response_excerpt = view.request_id = view.begun = view.upload = "";
    view.cause_domain = view.cause_text = view.place = "";
    return view;
  }();
  return failure;
}

varo_code give(const Failure& failure, varo_failure** to) noexcept {
  if (to == nullptr) return codeOf(failure.kind);
  try {
    *to = std::make_unique<OwnedFailure>(failure).release();
  } catch (const std::bad_alloc&) {
    return giveNoMemory(to);
  }
  return codeOf(failure.kind);
}

varo_code giveNoMemory(varo_failure** to) noexcept {
  // `varo_failure_free` leaves it alone.
  if (to != nullptr) *to = const_cast<varo_failure*>(&noMemoryFailure());
  return VARO_NO_MEMORY;
}

Failure invalid(std::string message) {
  return detail::failureOf(Kind::kInvalidArgument, std::move(message));
}

Failure missing(const char* argument) {
  return invalid(std::string("The argument ") + argument + " is NULL");
}

}  // namespace varo::capi

const char* varo_code_name(varo_code code) {
  switch (code) {
    case VARO_OK:
      return "ok";
    case VARO_NO_MEMORY:
      return "noMemory";
    case VARO_PENDING:
      return "pending";
    default:
      break;
  }
  const bool isKind = code >= VARO_CANCELLED && code <= VARO_OTHER;
  // Literals, so they end with NUL.
  return nameOf(isKind ? static_cast<varo::Kind>(code - 1) : varo::Kind::kOther).data();
}

void varo_failure_free(varo_failure* failure) {
  if (failure == nullptr || failure == &varo::capi::noMemoryFailure()) return;
  const std::unique_ptr<varo::capi::OwnedFailure> owned(
      static_cast<varo::capi::OwnedFailure*>(failure));
}
