#pragma once

#include "Binary/Binary/Utils/OperationSettings.h"
#include "Platform/Common/NetworkError.h"
#include "Platform/Foundation/Result.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>

namespace varo::binary {

/// The outcome of a request: a result and a null error, or an error with as much of a result as
/// there is. Called at most once, on a thread of the runtime's pool. Some responses are passed over
/// in silence (see `getBinaryNetworkCompletionHandler`): they release the callback without a call.
using TaskCallback =
    std::function<void(const platform::Dictionary& result, const platform::NetworkErrorPtr& error)>;

/// What kind of response a request expects. Under `TransferPolicy::kSafe` only a response of this
/// kind, with a status below 400, is a success.
enum class AnswerKind {
  /// A JSON object within `AnswerLimits::listJson`.
  kList,
  /// A JSON object, of a creation or status request; within `AnswerLimits::smallJson`, as below.
  kRecord,
  /// A JSON object, or a 2xx without one byte: of an update, a deletion or a commit.
  kReceipt,
  /// Whatever an object store sends back for a chunk, or a 2xx without a body.
  kAnything,
  /// A 200; its bytes are handed on as they are.
  kFile,
  /// The same, or a 206.
  kPart,
};

/// The one gateway to the network: issues the requests of tasks, turns raw completions into results
/// and errors, and derives URLs from those that the back end returns. Errors have the domain
/// "BinaryNetworkUtils". Stateless, thread-safe.
class BinaryNetworkUtils {
 public:
  BinaryNetworkUtils() = delete;

  /// The requests return at once. `operationType` "Download" asks for the body's bytes as they are,
  /// "DownloadRange" for those of a part.
  /// Of `options` those of `VRONetworkUtility` are read, and an `OperationSettings` for the policy.
  static void GET(const std::string& url, const platform::Dictionary& queryParams,
                  const platform::Dictionary& headers, const platform::Dictionary& options,
                  std::string_view operationType, TaskCallback callback);
  static void POST(const std::string& url, const platform::Dictionary& queryParams,
                   const platform::Dictionary& headers, platform::RequestType requestType,
                   const platform::Value& body, const platform::Dictionary& options,
                   TaskCallback callback, AnswerKind kind = AnswerKind::kRecord);
  static void PUT(const std::string& url, const platform::Dictionary& queryParams,
                  const platform::Dictionary& headers, platform::RequestType requestType,
                  const platform::Value& body, const platform::Dictionary& options,
                  TaskCallback callback, AnswerKind kind = AnswerKind::kReceipt);
  static void DELETE(const std::string& url, const platform::Dictionary& queryParams,
                     const platform::Dictionary& headers, const platform::Dictionary& options,
                     TaskCallback callback);

  /// The completion that hands on to `callback`:
  /// - a transport error, with its code, user information and call stack;
  /// - under "Download", {"data": the bytes};
  /// - a JSON object with "opstatus": the object, and unless that is 0 the error 6003 with the
  ///   object under "userInfo" of its user information;
  /// - anything else: the JSON object, if it is one, and {"response_headers"}, without cookies.
  ///   HTTP statuses do not matter;
  /// - what is thrown meanwhile, and JSON beyond its limits, as the error 6003.
  ///
  /// A response without a body, and an "opstatus" of 0 beside a parse error, are passed over in
  /// silence. A 206 to a download is an error (6003) unless it is the whole file.
  ///
  /// Under `TransferPolicy::kSafe` these are errors:
  /// - all of the paragraph before (6014, 6003);
  /// - what `kind` does not allow;
  /// - a status of 400 or more that no "opstatus" explains (6003, with "httpStatusCode",
  ///   "response_headers" and the start of the body, "responseBody").
  ///
  /// Nothing that is logged or kept in an error shows secrets: neither those that a response names
  /// so, nor those that stand in `sent`, the request's headers and parameters.
  [[nodiscard]] static platform::NetworkCallback getBinaryNetworkCompletionHandler(
      TaskCallback callback, std::string_view operationType,
      const OperationSettings::Ptr& settings = nullptr, AnswerKind kind = AnswerKind::kRecord,
      platform::Dictionary sent = {});

  /// What stands before the first "services" of a URL, which is looked for behind the server; none
  /// without one.
  [[nodiscard]] static std::optional<std::string> extractBaseUrl(
      const std::optional<std::string>& url);
  /// The same with "services".
  [[nodiscard]] static std::optional<std::string> extractBaseServiceUrl(
      const std::optional<std::string>& url);

  /// The current URL's service and the path of a polling fragment. A service that is not there
  /// prints as "(none)", which no request accepts as a URL; here and below.
  [[nodiscard]] static std::string extractPollingUrl(const std::optional<std::string>& currentUrl,
                                                     std::string_view pollingApiFragment);

  /// The query part's keys and values, undecoded; of equal keys the last wins. A pair without "="
  /// has the empty text as its value, an empty pair is skipped; empty without a query part.
  [[nodiscard]] static platform::Dictionary extractQueryParams(std::string_view url);

  /// The URL that a template asks for: "domain" and "relativepath", where the domain
  /// "#middlewaredomain" stands for the current URL's service.
  [[nodiscard]] static std::string extractFileOperationUrl(
      const platform::Dictionary& templateDictionary, const std::optional<std::string>& currentUrl);

  /// The same, for a request that carries the caller's credentials: under "#middlewaredomain" at
  /// the current URL's server, else at the one that "domain" names, whatever the path is. An
  /// address that leads elsewhere is an error, `kCodeMissingServerUrl`, with the address in its
  /// text. A template without a domain gives what no request accepts as a URL.
  [[nodiscard]] static platform::Result<std::string> fileOperationUrlAtItsServer(
      const platform::Dictionary& templateDictionary, const std::optional<std::string>& currentUrl);
  /// `address`, where it is at the server of `serverUrl`; else that error.
  [[nodiscard]] static platform::Result<std::string> addressAtServer(std::string address,
                                                                     std::string_view serverUrl);

  /// `url` with the parameters appended as they are, percent-encoding included: for those that were
  /// part of a URL before. Only what would end a pair is encoded.
  [[nodiscard]] static std::string appendQueryOfUrl(std::string url,
                                                    const platform::Dictionary& queryParams);

  /// The template that a JSON text holds, within `kFilledJsonLimits`. None for no text, and, with
  /// `error` set unless it is null, for text that is no JSON object.
  [[nodiscard]] static std::optional<platform::Dictionary> getTemplate(
      const std::optional<std::string>& json, platform::ErrorPtr* error);

  /// Sets a header in place of all of that name, in whatever letter case they are written: a
  /// request never carries two.
  static void setHeader(platform::Dictionary& headers, std::string_view name,
                        const platform::Value& value);

  /// `headers` without those named, whatever the letter case in which they are written.
  [[nodiscard]] static platform::Dictionary withoutHeaders(
      const platform::Dictionary& headers, std::initializer_list<std::string_view> names);

  /// `value` with everything secret in it replaced, as errors may hold it: what stands under secret
  /// keys, and in texts what `redactSecrets` finds and what stands under secret keys of `sent`.
  [[nodiscard]] static platform::Value withoutSecrets(const platform::Value& value,
                                                      const platform::Dictionary& sent = {});
};

}  // namespace varo::binary
