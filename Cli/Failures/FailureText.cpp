#include "Cli/Failures/FailureText.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/BinaryNetworkConstants.h"
#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "Cli/Arguments/Arguments.h"
#include "Cli/Terminal/TerminalText.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/TaskEngine/VSTask.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <utility>

namespace varo::cli {

using platform::Dictionary;
using platform::ErrorPtr;
using platform::Value;

namespace {

struct Hint {
  std::int64_t code;
  std::string_view text;
};

/// Codes of failed requests: libcurl's below 1000, the transport's own from 1001.
constexpr std::array kRequestHints = {
    Hint{5, "Check the host name in the URL, and the network."},
    Hint{6, "Check the host name in the URL, and the network."},
    Hint{7,
         "Is the service running, and are host and port right? 'varobinary sandbox' starts a local "
         "one."},
    Hint{18, "The connection broke off. Nothing was stored; run the command again."},
    Hint{28,
         "Nothing moved for a while. Try again, or allow more with --connect-timeout and "
         "--stall-timeout."},
    Hint{52, "The server closed the connection without an answer. Try again later."},
    Hint{55, "The connection broke off. Run the command again."},
    Hint{56, "The connection broke off. Nothing was stored; run the command again."},
    Hint{60,
         "The server's certificate is not trusted. Trust your own authority with --cacert FILE."},
    Hint{77, "The file given with --cacert must hold certificates in PEM form."},
    Hint{1001, "The URL must start with http:// or https://."},
    Hint{1002, "Check the values given with --header and --token."},
    Hint{1004, "Use the URL that the service redirects to."},
    Hint{1005, "The service redirects in circles: check the URL."},
    Hint{1007, "The file changed or became unreadable while it was sent. Run the command again."},
    Hint{1008, "Check the room and the permissions of the download directory (see --home)."},
};

constexpr std::array kLibraryHints = {
    Hint{binary::kCodeMissingServerUrl,
         "Give the base URL of the object service, for example "
         "http://127.0.0.1:8080/services/data/v1/storage."},
    Hint{binary::kCodeBinaryRecordDoesNotExist,
         "'varobinary list URL' shows the ids of the files that are there."},
    Hint{binary::kCodeInvalidStateForBinaryOperation,
         "The service has more than one record with this id; its data need repair."},
    Hint{binary::kCodeUploadIOFailure, "The file must exist, be readable and not be empty."},
    Hint{binary::kCodeBinaryDownloadFailed,
         "Check the room and the permissions of the download directory (see --home)."},
};

constexpr std::string_view kTokenHint =
    "Give a valid token with --token-file FILE or in VARO_TOKEN, and --security-key K for a file "
    "that "
    "has one.";

constexpr std::string_view kStillWorkingHint =
    "The service may still finish it: 'varobinary list URL' shows later whether the files are "
    "gone.";

template <std::size_t N>
std::string_view find(const std::array<Hint, N>& hints, std::int64_t code) {
  const auto* hint =
      std::find_if(hints.begin(), hints.end(), [&](const Hint& h) { return h.code == code; });
  return hint == hints.end() ? std::string_view() : hint->text;
}

std::string_view hintForStatus(std::int64_t status) {
  if (status == 401 || status == 403) return kTokenHint;
  if (status == 404) return "Is this the base URL of an object service, without '/objects/File'?";
  if (status >= 500) return "The service has a problem of its own. Try again later.";
  return {};
}

/// The service's own words and status, where its answer came along with the error.
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

void addHint(const Dictionary& userInfo, FailureText& text) {
  if (text.domain == kUsageErrorDomain || text.domain == platform::kPosixErrorDomain) return;
  if (text.domain == binary::kRetriesExceededErrorDomain) {
    text.hint = kStillWorkingHint;
    return;
  }
  if (text.code == binary::kCodeHTTPRequestFailed) {
    addAnswer(userInfo, text);
    return;
  }
  text.hint = find(kRequestHints, text.code);
  if (text.hint.empty()) text.hint = find(kLibraryHints, text.code);
}

/// The hint for what lies under an error that wraps others, which knows more than they do.
void addHintOfCause(const platform::Error& cause, FailureText& text) {
  const std::string path = cause.userInfo()["path"].textValue();
  if (!path.empty()) {
    text.hint = fmt::format("Check the room and the permissions of {}.", printable(path));
  } else if (cause.domain() == platform::kHttpTransportErrorDomain) {
    const std::string_view hint = find(kRequestHints, cause.code());
    if (!hint.empty()) text.hint = hint;
  }
}

FailureText fromParts(std::string domain, std::int64_t code, std::string message,
                      const Dictionary& userInfo) {
  FailureText text{std::move(domain), code, std::move(message), {}};
  addHint(userInfo, text);
  return text;
}

/// The first of the errors that `context` is about; null where it is about none.
ErrorPtr causeIn(const Dictionary& context) {
  const Value& causes = context[platform::kTaskErrors];
  return causes.isArray() ? (*causes.array())[0].error() : nullptr;
}

FailureText fromError(const ErrorPtr& given) {
  // An error about other errors says nothing itself.
  const ErrorPtr cause = causeIn(given->userInfo());
  const ErrorPtr& error = cause != nullptr ? cause : given;
  FailureText text =
      fromParts(error->domain(), error->code(), error->localizedDescription(), error->userInfo());
  if (const platform::Error& first = platform::firstCause(*error); &first != error.get()) {
    addHintOfCause(first, text);
  }
  return text;
}

FailureText fromDictionary(const Dictionary& failure) {
  const Dictionary userInfo = failure[binary::keys::kUserInfo].dictionaryValue();
  if (const ErrorPtr cause = causeIn(userInfo)) return fromError(cause);
  std::string message = failure[binary::keys::kLocalizedDescription].textValue();
  if (message.empty()) message = userInfo[platform::kErrorMessageKey].textValue();
  if (message.empty()) message = "the operation failed";
  FailureText text =
      fromParts(failure[binary::keys::kDomain].textValue(),
                failure[binary::keys::kCode].integerValue(), std::move(message), userInfo);
  if (const ErrorPtr under = userInfo[platform::kUnderlyingError].error()) {
    addHintOfCause(platform::firstCause(*under), text);
  }
  return text;
}

}  // namespace

FailureText describeFailure(const Value& failure) {
  if (const ErrorPtr error = failure.error()) return fromError(error);
  const Dictionary dictionary = failure.dictionaryValue();
  const Value& inner = dictionary[binary::keys::kError];
  if (const ErrorPtr error = inner.error()) return fromError(error);
  if (const Dictionary* contexts = inner.dictionary()) {
    const ErrorPtr first = causeIn(*contexts);
    return first != nullptr ? fromError(first) : fromDictionary(*contexts);
  }
  return fromDictionary(dictionary);
}

}  // namespace varo::cli
