#include "Cli/Failures/FailureText.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Utils/ToldFailure.h"
#include "Cli/Failures/ClientFailure.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/TransportFailure.h"
#include "varo/failure.h"

#include <fmt/format.h>

namespace varo::cli {

using platform::Dictionary;
using platform::Value;

namespace {

constexpr std::string_view kTokenHint =
    "Give a valid token with --token-file FILE or in VARO_TOKEN, and --security-key K for a file "
    "that "
    "has one.";

std::string_view hintForStatus(std::int64_t status) {
  if (status == 401 || status == 403) return kTokenHint;
  // What knows neither the address nor the method is mostly another server.
  if (status == 404 || status == 405 || status == 501) {
    return "Is this the base URL of an object service, without '/objects/File'?";
  }
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

}  // namespace

FailureText describeFailure(const Value& failure) {
  return describeFailureOf(Topic::kFile, failure);
}

FailureText describeWithoutHint(const Value& failure) {
  FailureText text = describeFailure(failure);
  text.hint.clear();
  return text;
}

FailureText describeFailureOf(Topic topic, const Value& failure) {
  const binary::ToldFailure told = binary::readFailure(failure);
  const std::string message = told.text.empty() ? "the operation failed" : told.text;
  FailureText text{told.domain, told.code, message, {}, factsOf(failure)};
  addHint(topic, told.userInfo, text);
  if (told.cause != nullptr) addHintOfCause(topic, *told.cause, text);
  if (isAboutProxy(text)) {
    text.hint = hintFor(topic, text.facts.kind == nameOf(Kind::kUnauthorized)
                                   ? platform::TransportFailure::kProxyRefused
                                   : platform::TransportFailure::kProxyNotReached);
  }
  if (text.hint.empty()) text.hint = hintForKind(topic, text.facts.kind);
  return text;
}

bool isAboutProxy(const FailureText& text) {
  const auto says = [&](std::string_view words) {
    return text.message.find(words) != std::string::npos;
  };
  return says("The proxy ") && !says("could not reach the server");
}

}  // namespace varo::cli
