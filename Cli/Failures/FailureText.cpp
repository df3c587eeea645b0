#include "Cli/Failures/FailureText.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/TransportFailure.h"
#include "Platform/TaskEngine/VSTask.h"

#include <fmt/format.h>

#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

constexpr std::string_view kTokenHint =
    "Give a valid token with --token-file FILE or in VARO_TOKEN, and --security-key K for a file "
    "that "
    "has one.";

std::string_view hintForStatus(std::int64_t status) {
  if (status == 401 || status == 403) return kTokenHint;
  if (status == 404) return "Is this the base URL of an object service, without '/objects/File'?";
  if (status >= 500) return "The service has a problem of its own. Try again later.";
  return {};
}

/// The service's own words and status, where its response came along with the error.
void addAnswer(const Dictionary& userInfo, FailureText& text) {
  const Dictionary answer = userInfo[binary::keys::kUserInfo].dictionaryValue();
  const std::string* words = answer["errmsg"].text();
  if (words != nullptr && !words->empty()) text.message += fmt::format(" ({})", *words);
  const Dictionary& source = userInfo.contains(binary::kHttpStatusCode) ? userInfo : answer;
  const std::int64_t status = source[binary::kHttpStatusCode].integerValue();
  text.hint = hintForStatus(status);
  if (text.hint.empty() && platform::lowerCase(text.message).find("token") != std::string::npos) {
    text.hint = kTokenHint;
  }
}

/// Whether the error is about a response of the service, which then says more than the code.
bool isAboutAnswer(const FailureText& text) {
  return text.code == binary::kCodeHTTPRequestFailed &&
         (text.domain == binary::kBinaryNetworkUtilsErrorDomain ||
          text.domain == binary::kNetworkOperationErrorDomain);
}

void addHint(Topic topic, const Dictionary& userInfo, FailureText& text) {
  if (isAboutAnswer(text)) return addAnswer(userInfo, text);
  const auto failure = platform::transportFailureIn(userInfo);
  text.hint = failure ? hintFor(topic, *failure) : hintFor(topic, text.domain, text.code);
}

/// The hint for what lies under an error that wraps others, which knows more than they do.
void addHintOfCause(Topic topic, const platform::Error& cause, FailureText& text) {
  const std::string path = cause.userInfo()["path"].textValue();
  const auto failure = platform::transportFailureOf(cause);
  if (!path.empty()) {
    text.hint = fmt::format("Check the room and the permissions of {}.", printable(path));
  } else if (failure && !hintFor(topic, *failure).empty()) {
    text.hint = hintFor(topic, *failure);
  }
}

FailureText fromParts(Topic topic, std::string domain, std::int64_t code, std::string message,
                      const Dictionary& userInfo) {
  FailureText text{std::move(domain), code, std::move(message), {}};
  addHint(topic, userInfo, text);
  return text;
}

/// The first of the errors that `context` is about; null where it is about none.
ErrorPtr causeIn(const Dictionary& context) {
  const Value& causes = context[platform::kTaskErrors];
  return causes.isArray() ? (*causes.array())[0].error() : nullptr;
}

FailureText fromError(Topic topic, const ErrorPtr& given) {
  // An error about other errors says nothing itself.
  const ErrorPtr cause = causeIn(given->userInfo());
  const ErrorPtr& error = cause != nullptr ? cause : given;
  FailureText text = fromParts(topic, error->domain(), error->code(), error->localizedDescription(),
                               error->userInfo());
  if (const platform::Error& first = platform::firstCause(*error); &first != error.get()) {
    addHintOfCause(topic, first, text);
  }
  return text;
}

FailureText fromDictionary(Topic topic, const Dictionary& failure) {
  const Dictionary userInfo = failure[binary::keys::kUserInfo].dictionaryValue();
  if (const ErrorPtr cause = causeIn(userInfo)) return fromError(topic, cause);
  std::string message = failure[binary::keys::kLocalizedDescription].textValue();
  if (message.empty()) message = userInfo[platform::kErrorMessageKey].textValue();
  if (message.empty()) message = "the operation failed";
  FailureText text =
      fromParts(topic, failure[binary::keys::kDomain].textValue(),
                failure[binary::keys::kCode].integerValue(), std::move(message), userInfo);
  if (const ErrorPtr under = userInfo[platform::kUnderlyingError].error()) {
    addHintOfCause(topic, platform::firstCause(*under), text);
  }
  return text;
}

}  // namespace

FailureText describeFailure(const Value& failure) {
  return describeFailureOf(Topic::kFile, failure);
}

FailureText describeFailureOf(Topic topic, const Value& failure) {
  if (const ErrorPtr error = failure.error()) return fromError(topic, error);
  const Dictionary dictionary = failure.dictionaryValue();
  const Value& inner = dictionary[binary::keys::kError];
  if (const ErrorPtr error = inner.error()) return fromError(topic, error);
  if (const Dictionary* contexts = inner.dictionary()) {
    const ErrorPtr first = causeIn(*contexts);
    return first != nullptr ? fromError(topic, first) : fromDictionary(topic, *contexts);
  }
  return fromDictionary(topic, dictionary);
}

}  // namespace varo::cli
