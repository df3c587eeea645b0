#include "Cli/Failures/ObjectFailure.h"

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Failures/StorageFailure.h"
#include "Platform/Foundation/Array.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/UserDirectories.h"
#include "Platform/TaskEngine/VSTask.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace varo::cli {

using platform::Array;
using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

/// Bytes of a reason that is neither XML nor short.
constexpr std::size_t kLongestReason = 300;

/// What a store says in the elements of its XML, and what to do about it.
struct StoreHint {
  std::string_view code;
  std::string_view text;
};

constexpr std::array kStoreHints = {
    StoreHint{"SignatureDoesNotMatch",
              "Check \"secretAccessKey\", \"regionName\", \"Host\" and \"objectName\", in which "
              "blanks, '%' "
              "and what is not ASCII have to be percent-encoded."},
    StoreHint{"NoSuchKey",
              "There is no such object. Blanks, '%' and what is not ASCII have to be "
              "percent-encoded in its name."},
    StoreHint{"InvalidAccessKeyId", "Check \"accessKeyID\"."},
    StoreHint{"RequestTimeTooSkewed", "Set the clock of this machine."},
    StoreHint{"AuthorizationHeaderMalformed", "Check \"regionName\" and \"serviceName\"."},
    StoreHint{"AccessDenied", "Check the keys, and what they are allowed to do."},
};

const Value& firstOf(const Value& failure) {
  const Array* errors = failure.array();
  return errors != nullptr && !errors->empty() ? (*errors)[0] : failure;
}

/// The user information of the error that `error` is about, or its own.
Dictionary detailsOf(const ErrorPtr& error) {
  if (error == nullptr) return {};
  const ErrorPtr cause = firstOf(error->userInfo()[platform::kTaskErrors]).error();
  return cause != nullptr ? cause->userInfo() : error->userInfo();
}

/// The text of the first element of this name, its entities resolved; empty where there is none.
std::string elementOf(std::string_view xml, std::string_view name) {
  const std::string open = fmt::format("<{}>", name);
  const std::size_t begin = xml.find(open);
  if (begin == std::string_view::npos) return {};
  const std::string_view rest = xml.substr(begin + open.size());
  const std::size_t end = rest.find('<');
  if (end == std::string_view::npos) return {};
  std::string text(rest.substr(0, end));
  constexpr std::array<std::pair<std::string_view, char>, 5> kEntities = {
      {{"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}}};
  for (const auto& [entity, character] : kEntities) {
    for (std::size_t at = 0; (at = text.find(entity, at)) != std::string::npos; ++at) {
      text.replace(at, entity.size(), 1, character);
    }
  }
  return text;
}

/// The reason that the response of a store or a service gives.
void addReason(const std::string& body, FailureText& text) {
  const std::string code = elementOf(body, "Code");
  const std::string message = elementOf(body, "Message");
  if (code.empty() && message.empty()) {
    if (!body.empty()) {
      text.message += fmt::format(" ({})", platform::utf8Prefix(body, kLongestReason));
    }
    return;
  }
  text.message +=
      fmt::format(": {}{}{}", code, code.empty() || message.empty() ? "" : ": ", message);
  const auto* hint = std::find_if(kStoreHints.begin(), kStoreHints.end(),
                                  [&](const StoreHint& h) { return h.code == code; });
  if (hint != kStoreHints.end()) text.hint = hint->text;
}

bool isUnknownMode(const FailureText& text) {
  return text.domain == binary::kUploadTaskErrorDomain &&
         text.code == binary::kCodeUploadTaskInstanceFailure;
}

/// Of an upload whose template, which is all that the error has, is none to go by.
void describeTemplate(const Dictionary& given, FailureText& text) {
  if (isUnknownMode(text)) {
    text.message =
        fmt::format("the template of the service has the unknown \"{}\" '{}'",
                    binary::keys::kUploadMode, given[binary::keys::kUploadMode].textValue());
    return;
  }
  const std::string words = given["errmsg"].textValue();
  text.message = fmt::format("the service gave no template: {} {}{}", binary::kOpStatus,
                             given[binary::kOpStatus].integerValue(),
                             words.empty() ? "" : fmt::format(" ({})", words));
}

void addUploadHint(FailureText& text) {
  if (platform::lowerCase(text.message).find("token") != std::string::npos) {
    text.hint = fmt::format(
        "The service of the templates takes its token from \"{}\" of --config "
        "or from --header.",
        binary::keys::kHeaders);
    return;
  }
  const std::string_view hint = hintFor(Topic::kObject, text.domain, text.code);
  if (!hint.empty()) text.hint = hint;
}

void addDownloadHint(const Dictionary& context, FailureText& text) {
  if (context.contains(binary::kPersistenceError)) {
    const Dictionary failure = context[binary::kPersistenceError].dictionaryValue();
    describeStorageFailure(failure, platform::UserDirectories::current()->documents(), text);
  } else {
    const std::string_view hint = hintFor(Topic::kObject, text.domain, text.code);
    text.hint = hint.empty() ? hintFor(Topic::kObject, binary::kDownloadTaskError,
                                       binary::kCodeDownloadTaskFailed)
                             : hint;
  }
}

}  // namespace

FailureText describeObjectFailure(const Value& failure) {
  const Value& first = firstOf(failure);
  FailureText text = describeFailureOf(Topic::kObject, first);
  const ErrorPtr error = first.error();
  if (error == nullptr) return text;
  // What the library says of every request that failed.
  const std::string misnomer = fmt::format("{}: ", binary::kUploadFailure);
  if (text.message.starts_with(misnomer)) text.message.erase(0, misnomer.size());
  if (error->domain() == binary::kDownloadTaskError) {
    addDownloadHint(error->userInfo(), text);
  } else if (isUnknownMode(text) || error->userInfo().contains(binary::kOpStatus)) {
    describeTemplate(error->userInfo(), text);
  } else {
    addUploadHint(text);
  }
  const Dictionary details = detailsOf(error);
  const std::int64_t status = details[binary::kHttpStatusCode].integerValue();
  if (status != 0) {
    if (text.message.ends_with('.')) text.message.pop_back();
    text.message += fmt::format(", HTTP status {}", status);
  }
  addReason(details[binary::kResponseBody].textValue(), text);
  return text;
}

std::string storeErrorCode(const Value& failure) {
  const Dictionary details = detailsOf(firstOf(failure).error());
  return elementOf(details[binary::kResponseBody].textValue(), "Code");
}

}  // namespace varo::cli
