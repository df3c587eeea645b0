#include "Binary/Binary/DownloadTask/RangeVerdict.h"

#include "Binary/Binary/Utils/ContentRange.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Platform/Foundation/Text.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

namespace varo::binary {
namespace {

enum HttpStatus : int {
  kOk = 200,
  kPartialContent = 206,
  kBadRequest = 400,
  kUnauthorized = 401,
  kForbidden = 403,
  kNotFound = 404,
  kPreconditionFailed = 412,
  kRangeNotSatisfiable = 416,
  kInternalServerError = 500,
  kServiceUnavailable = 503,
};

using Kind = RangeVerdict::Kind;

/// Of most responses that are not taken.
/// Of a response without bytes: not a well-formed field, but what is sent where no size is stated.
constexpr std::string_view kNoRangeOfUnknownSize = "bytes */*";

constexpr std::string_view kRangeNotReceived =
    "The Content-Range of the response is missing or malformed, or is not of the range asked for.";
constexpr std::string_view kNoEnd = "The object has no end";
constexpr std::string_view kTooManyRanges =
    "The object came in too many ranges, each much shorter than asked for.";

RangeVerdict verdict(Kind kind, RangeKnowledge known) {
  return {.kind = kind, .known = std::move(known)};
}

RangeVerdict failure(const RangeQuestion& question, std::int64_t code, std::string_view message) {
  RangeVerdict result = verdict(Kind::kError, question.known);
  result.code = code;
  result.message = std::string(message);
  return result;
}

std::string_view setErrorMessageDependingOnStatusCode(int status) {
  switch (status) {
    case kBadRequest:
      return "Bad Request.";
    case kUnauthorized:
      return "Unauthorized.";
    case kForbidden:
      return "Forbidden.";
    case kNotFound:
      return "Not Found.";
    case kInternalServerError:
      return "Internal Server Error";
    case kServiceUnavailable:
      return "Service Unavailable.";
    default:
      return "Other issues.";
  }
}

RangeVerdict otherObject(const RangeQuestion& question) {
  const bool startsOver = question.isSafe || question.isFirstOfResumed;
  if (startsOver && question.mayStartOver()) return verdict(Kind::kStartOver, {});
  return failure(question, kCodeIntegrityCheckFailed, kIntegrityCheckFailed);
}

/// Whether the response is of another object than what is known. `total` is what it says of the
/// size.
bool differs(const RangeQuestion& question, const RangeAnswer& answer,
             std::optional<std::int64_t> total) {
  const ObjectValidator& known = question.known.object;
  const ObjectValidator& said = answer.validator;
  if (known.total != 0 && total && *total != known.total) return true;
  const bool hasTags = !known.entityTag.empty() && !said.entityTag.empty();
  if (hasTags && known.hasStrongTag() && said.hasStrongTag()) {
    return known.entityTag != said.entityTag;
  }
  if (question.isSafe && hasTags && !tagsMatchWeakly(known.entityTag, said.entityTag)) return true;
  if (!question.isSafe && (!question.isFirstOfResumed || known.hasStrongTag())) return false;
  return !known.lastModified.empty() && !said.lastModified.empty() &&
         known.lastModified != said.lastModified;
}

/// Adds what the response says of its object, which is the known one; a strong tag tells more than
/// the weak one that was there before.
void noteValidator(ObjectValidator& known, const ObjectValidator& said) {
  if (known.entityTag.empty() || (!known.hasStrongTag() && said.hasStrongTag())) {
    known.entityTag = said.entityTag;
  }
  if (known.lastModified.empty()) {
    known.lastModified = said.lastModified;
    known.isLastModifiedStrong = said.isLastModifiedStrong;
  }
}

/// A size that is known is changed by nobody: the response's was compared with it before.
void populateFileSizeFromResponse(RangeKnowledge& known, std::optional<std::int64_t> total) {
  if (known.object.total == 0 && total) known.object.total = *total;
  if (known._totalFileSize != 0 || known._isAsteriskRecieved) return;
  if (!total && known.object.total == 0) {
    known._isAsteriskRecieved = true;
  } else {
    known._totalFileSize = known.object.total;
  }
}

// 200.

RangeVerdict judgeWholeObject(const RangeQuestion& question, const RangeAnswer& answer) {
  RangeKnowledge known = question.known;
  if (answer.isError) {
    RangeVerdict error = failure(question, kCodeDownloadFault, {});
    error.message = answer.errorMessage;
    return error;
  }
  // What was given away cannot be taken back; a file is written anew.
  const bool isGivenAway = question.isStreamed && known.bytesPublished > 0;
  if (isGivenAway && differs(question, answer, std::nullopt)) return otherObject(question);
  if (answer.size == 0) {
    const bool hasNothing =
        known.bytesPublished == 0 && known._totalFileSize == 0 && !known._isAsteriskRecieved;
    if (hasNothing) return verdict(Kind::kWhole, known);
    // The listener would take this for the end of what it has.
    return failure(question, kCodeEmptyBodyReceived, kEmptyBodyReceived);
  }
  const bool isOtherSize = known.object.total != 0 && answer.size != known.object.total;
  if (isGivenAway && (answer.size < known.bytesPublished || isOtherSize)) {
    return otherObject(question);
  }
  known.object = answer.validator;
  known.object.total = answer.size;
  if (known._totalFileSize != 0) known._totalFileSize = answer.size;
  known.bytesPublished = std::max(known.bytesPublished, answer.size);
  return verdict(Kind::kWhole, known);
}

// 206.

/// Whether the body is the range asked for, or the first part of it.
bool isAskedFor(const RangeQuestion& question, const RangeAnswer& answer,
                const std::optional<ContentRange>& range) {
  return range && range->span && range->span->first == question.offset &&
         range->span->last - question.offset == answer.size - 1 && answer.size <= question.length();
}

/// Whether a response without bytes is the end of an object whose size the server does not state.
bool isEndOfUnknownSize(const RangeQuestion& question, const RangeAnswer& answer,
                        const std::optional<ContentRange>& range) {
  const RangeKnowledge& known = question.known;
  const std::int64_t end = question.offset;
  if (!question.isSafe && known._isAsteriskRecieved) return true;
  if (known._totalFileSize != 0 || end < known.bytesPublished) return false;
  if (known.object.total != 0 && known.object.total != end) return false;
  if (platform::equalIgnoringCase(platform::trimmed(answer.contentRange), kNoRangeOfUnknownSize)) {
    return true;
  }
  if (!known._isAsteriskRecieved) return false;
  return answer.contentRange.empty() || (range && !range->span && range->total == end);
}

/// How many ranges with bytes are too many.
std::int64_t maxRanges(const RangeKnowledge& known, std::int64_t chunkSize) {
  if (known._totalFileSize == 0) return kMaxRangesOfUnknownSize;
  const std::int64_t needed = (known._totalFileSize - 1) / chunkSize + 1;
  return needed > std::numeric_limits<std::int64_t>::max() / kMaxRangesForOneNeeded
             ? std::numeric_limits<std::int64_t>::max()
             : needed * kMaxRangesForOneNeeded;
}

RangeVerdict judgeRange(const RangeQuestion& question, const RangeAnswer& answer) {
  const auto range = ContentRange::parse(answer.contentRange);
  const std::optional<std::int64_t> total = range ? range->total : std::nullopt;
  const bool isEmpty = answer.size == 0;
  const bool belongs =
      isEmpty ? isEndOfUnknownSize(question, answer, range) : isAskedFor(question, answer, range);
  if (!belongs) return failure(question, kCodeContentRangeNotReceived, kRangeNotReceived);
  if (differs(question, answer, isEmpty ? std::nullopt : total)) return otherObject(question);
  RangeKnowledge known = question.known;
  if (isEmpty) {
    if (known._totalFileSize == 0) known._isAsteriskRecieved = true;
    return verdict(Kind::kEnd, known);
  }
  noteValidator(known.object, answer.validator);
  populateFileSizeFromResponse(known, total);
  const std::int64_t end = question.offset + answer.size;
  known.bytesPublished = std::max(known.bytesPublished, end);
  ++known.ranges;
  const bool isComplete = known._totalFileSize != 0 && end >= known._totalFileSize;
  if (!isComplete && known.ranges > maxRanges(known, question.chunkSize)) {
    return failure(question, kCodeDownloadFault,
                   known._totalFileSize == 0 ? kNoEnd : kTooManyRanges);
  }
  RangeVerdict result = verdict(Kind::kRange, known);
  result.isComplete = isComplete;
  return result;
}

// 412, 416.

/// None where the response is only the error that its status says.
std::optional<RangeVerdict> judgeRefusal(const RangeQuestion& question, const RangeAnswer& answer) {
  if (!question.isSafe && !question.isFirstOfResumed) return std::nullopt;
  const auto range = ContentRange::parse(answer.contentRange);
  const std::optional<std::int64_t> total = range ? range->total : std::nullopt;
  if (differs(question, answer, total)) return otherObject(question);
  if (answer.status == kPreconditionFailed) {
    const bool wasConditional =
        question.isSafe && question.offset > 0 && !question.known.object.ifRange().empty();
    if (wasConditional) return otherObject(question);
  } else if (total && *total < question.offset && question.mayStartOver()) {
    return verdict(Kind::kStartOver, {});
  } else if (total && *total == question.offset && question.isSafe) {
    RangeKnowledge known = question.known;
    known._totalFileSize = known.object.total = *total;
    return verdict(Kind::kAllThere, known);
  }
  return std::nullopt;
}

}  // namespace

std::int64_t RangeQuestion::last() const noexcept {
  const std::int64_t room = std::numeric_limits<std::int64_t>::max() - offset;
  const std::int64_t end = offset + std::min(chunkSize - 1, room);
  const std::int64_t total = known._totalFileSize;
  return total != 0 ? std::min(end, total - 1) : end;
}

RangeVerdict judge(const RangeQuestion& question, const RangeAnswer& answer) {
  switch (answer.status) {
    case kOk:
      return judgeWholeObject(question, answer);
    case kPartialContent:
      return judgeRange(question, answer);
    case kPreconditionFailed:
    case kRangeNotSatisfiable:
      if (auto judged = judgeRefusal(question, answer)) return *std::move(judged);
      break;
    default:
      break;
  }
  return failure(question, kCodeDownloadFault, setErrorMessageDependingOnStatusCode(answer.status));
}

}  // namespace varo::binary
