#include "Cli/Failures/Hints.h"

#include "Binary/BinaryFileAdapterWithMetadata/Constants/ErrorConstants.h"
#include "varo/failure.h"

#include <algorithm>
#include <array>
#include <optional>

namespace varo::cli {

using platform::TransportFailure;

namespace {

struct Hint {
  /// None: any.
  std::optional<Topic> topic;
  std::string_view domain;
  std::int64_t code;
  std::string_view text;
};

/// Of a transport's errors the `TransportFailure` counts, which holds for every HTTP library. Under
/// a name that is no error's domain, since the numbers are others than the codes of the errors.
constexpr Hint transport(TransportFailure failure, std::string_view text) {
  return {std::nullopt, platform::kTransportFailureKey, static_cast<std::int64_t>(failure), text};
}

constexpr Hint file(std::string_view domain, std::int64_t code, std::string_view text) {
  return {Topic::kFile, domain, code, text};
}

constexpr Hint blob(std::string_view domain, std::int64_t code, std::string_view text) {
  return {Topic::kBlob, domain, code, text};
}

constexpr Hint object(std::string_view domain, std::int64_t code, std::string_view text) {
  return {Topic::kObject, domain, code, text};
}

constexpr std::string_view kBrokeOff =
    "The connection broke off. Nothing was stored; run the command again.";
constexpr std::string_view kNoSense =
    "The service's response makes no sense; try again later. What has arrived is kept: the same "
    "command resumes there.";
constexpr std::string_view kNotRunning = "Is the store or service of --config running?";
constexpr std::string_view kNothingKept =
    "Nothing is kept of an object without bytes: the library takes it for an error.";
constexpr std::string_view kCheckFile = "The file must exist, be readable and not be empty.";
constexpr std::string_view kCheckDownloads =
    "Check the room and the permissions of the download directory (see --home).";

constexpr std::array kHints = {
    transport(TransportFailure::kNameNotFound, "Check the host name in the URL, and the network."),
    transport(TransportFailure::kNoConnection,
              "Is the service running, and are host and port right? 'varobinary sandbox' starts a "
              "local one."),
    transport(TransportFailure::kProxyNotReached,
              "Check the address of the proxy, and that it runs."),
    transport(TransportFailure::kProxyRefused,
              "Check the user and the password of the proxy, and whether it serves this address."),
    transport(TransportFailure::kCutShort, kBrokeOff),
    transport(TransportFailure::kTimedOut,
              "Nothing moved for a while. Try again, or allow more with --connect-timeout and "
              "--stall-timeout."),
    transport(TransportFailure::kNoAnswer,
              "The server closed the connection without a response. Try again later."),
    transport(TransportFailure::kSendingBroken, "The connection broke off. Run the command again."),
    transport(TransportFailure::kCertificateNotTrusted,
              "The server's certificate is not trusted. Trust your own authority with --cacert "
              "FILE."),
    transport(TransportFailure::kTrustFileUnusable,
              "The file given with --cacert must hold certificates in PEM form."),
    transport(TransportFailure::kPinMismatch,
              "The server has another key than the pinned ones: a new key of its own, or somebody "
              "in between."),
    transport(TransportFailure::kClientCertificateUnusable,
              "The client certificate and its key must be in PEM form and belong together; the key "
              "may need its password."),
    transport(TransportFailure::kInvalidUrl, "The URL must start with http:// or https://."),
    transport(TransportFailure::kInvalidHeader,
              "Check the values given with --header and --token."),
    transport(TransportFailure::kRedirectRefused, "Use the URL that the service redirects to."),
    transport(TransportFailure::kTooManyRedirects,
              "The service redirects in circles: check the URL."),
    transport(TransportFailure::kRequestBodyUnreadable,
              "The file changed or became unreadable while it was sent. Run the command again."),
    transport(TransportFailure::kResponseBodyNotStored, kCheckDownloads),

    file(binary::kUrlValidationErrorDomain, binary::kCodeMissingServerUrl,
         "Give the base URL of the object service, for example "
         "http://127.0.0.1:8080/services/data/v1/storage."),
    file(binary::kDownloadErrorDomain, binary::kCodeBinaryRecordDoesNotExist,
         "'varobinary list URL' shows the ids of the files that are there."),
    file(binary::kDownloadErrorDomain, binary::kCodeInvalidStateForBinaryOperation,
         "The service has more than one record with this id; its data need repair."),
    file(binary::kDownloadErrorDomain, binary::kCodeBinaryDownloadFailed, kCheckDownloads),
    file(binary::kUploadErrorDomain, binary::kCodeUploadIOFailure, kCheckFile),
    file(binary::kRetriesExceededErrorDomain, binary::kCodeHTTPRequestFailed,
         "The service may still finish it: 'varobinary list URL' shows later whether the files are "
         "gone."),

    blob(binary::kRangeRequestErrorDomain, binary::kCodeUploadFailure,
         "Is the service at the \"URL\" of --config running? What has arrived is kept: the same "
         "command resumes there."),
    blob(binary::kNetworkTaskErrorDomain, binary::kCodeIntegrityCheckFailed,
         "The object changed on the service meanwhile. The same command fetches it anew."),
    blob(binary::kNetworkTaskErrorDomain, binary::kCodeContentRangeNotReceived, kNoSense),
    blob(binary::kNetworkTaskErrorDomain, binary::kCodeEmptyBodyReceived, kNoSense),
    blob(binary::kEmptyObjectErrorDomain, binary::kCodeEmptyBodyReceived, kNoSense),
    blob(binary::kDownloadTaskError, binary::kCodeDownloadTaskFailed,
         "Check \"URL\", \"ScopeName\" and \"ObjectName\" of --config, the --key, and the token "
         "(--token-file)."),
    blob(binary::kDownloadTaskErrorDomain, binary::kCodeInvalidStateForBinaryOperation,
         "'varobinary blob download' brings it."),
    blob(binary::kDeleteBinaryErrorDomain, binary::kCodeInvalidStateForBinaryOperation,
         "Without --before-sync the deletion is recorded and the file left alone."),
    blob(binary::kDeleteBinaryErrorDomain, binary::kCodeSQLiteExecuteFailed,
         "Is the database in use or read-only? --log-level error shows more."),

    object(binary::kNetworkTaskErrorDomain, binary::kCodeEmptyBodyReceived, kNothingKept),
    object(binary::kEmptyObjectErrorDomain, binary::kCodeEmptyBodyReceived, kNothingKept),
    object(binary::kRangeRequestErrorDomain, binary::kCodeUploadFailure, kNotRunning),
    object(binary::kDownloadTaskError, binary::kCodeDownloadTaskFailed,
           "Check the address and the keys of --config, and --param."),
    object(binary::kUploadTemplateErrorDomain, binary::kCodeUploadFailure, kNotRunning),
    object(binary::kBytesUploaderErrorDomain, binary::kCodeUploadFailure, kNotRunning),
    object(binary::kFormUploaderErrorDomain, binary::kCodeUploadFailure, kNotRunning),
    object(binary::kBytesUploaderErrorDomain, binary::kCodeUploadIOFailure, kCheckFile),
    object(binary::kFormUploaderErrorDomain, binary::kCodeUploadIOFailure, kCheckFile),
};

struct KindHint {
  std::optional<Topic> topic;
  Kind kind;
  std::string_view text;
};

constexpr std::array kKindHints = {
    KindHint{Topic::kFile, Kind::kNotOurService,
             "Is this the base URL of an object service? Something else has answered, such as a "
             "web page or another service."},
    KindHint{std::nullopt, Kind::kNotOurService,
             "Something else than the service has answered, such as a web page: check the "
             "address."},
    KindHint{std::nullopt, Kind::kNoConnection,
             "Is the service running, and are host and port right? 'varobinary sandbox' starts a "
             "local one."},
    KindHint{std::nullopt, Kind::kTimeout,
             "Nothing moved for a while. Try again, or allow more with --connect-timeout and "
             "--stall-timeout."},
    KindHint{std::nullopt, Kind::kTls,
             "Does the server speak https at this address? Trust your own authority with --cacert "
             "FILE."},
    KindHint{Topic::kFile, Kind::kUnauthorized,
             "Give a valid token with --token-file FILE or in VARO_TOKEN, and --security-key K for "
             "a file that has one."},
    KindHint{std::nullopt, Kind::kThrottled, "The service asks to be left alone for a while."},
    KindHint{std::nullopt, Kind::kIntegrity, "What came is not whole. Run the command again."},
    KindHint{std::nullopt, Kind::kDiskFull, "Make room on the disk, or choose another one."},
};

}  // namespace

std::string_view hintFor(Topic topic, std::string_view domain, std::int64_t code) {
  const auto* hint = std::find_if(kHints.begin(), kHints.end(), [&](const Hint& h) {
    return h.domain == domain && h.code == code && h.topic.value_or(topic) == topic;
  });
  return hint == kHints.end() ? std::string_view() : hint->text;
}

std::string_view hintForKind(Topic topic, std::string_view kind) {
  const auto* hint = std::find_if(kKindHints.begin(), kKindHints.end(), [&](const KindHint& h) {
    return nameOf(h.kind) == kind && h.topic.value_or(topic) == topic;
  });
  return hint == kKindHints.end() ? std::string_view() : hint->text;
}

std::string_view hintFor(Topic topic, TransportFailure failure) {
  return hintFor(topic, platform::kTransportFailureKey, static_cast<std::int64_t>(failure));
}

}  // namespace varo::cli
