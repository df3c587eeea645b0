#include "Platform/Network/CurlTransfer.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Network/CurlOptions.h"
#include "Platform/Network/HeaderRules.h"
#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace varo::platform {
namespace {

const char* nameOf(HttpMethod method) noexcept {
  switch (method) {
    case HttpMethod::kGet:
      return "GET";
    case HttpMethod::kPost:
      return "POST";
    case HttpMethod::kPut:
      return "PUT";
    case HttpMethod::kDelete:
      return "DELETE";
  }
  return "GET";
}

/// POST and PUT always have a body, if one of zero bytes.
std::optional<RequestBodyReader> readerFor(HttpRequest& request) {
  if (request.body) return RequestBodyReader(*std::move(request.body));
  if (request.method == HttpMethod::kPost || request.method == HttpMethod::kPut) {
    return RequestBodyReader({});
  }
  return std::nullopt;
}

/// Adds the configured certificates to what libcurl trusts already. Its own option for a file would
/// replace the system's.
CURLcode trustAlso(CURL* /*easy*/, void* context, void* path) {
  if (SSL_CTX_load_verify_locations(static_cast<SSL_CTX*>(context), static_cast<const char*>(path),
                                    nullptr) == 1) {
    return CURLE_OK;
  }
  ERR_clear_error();
  return CURLE_SSL_CACERT_BADFILE;
}

void setSecurity(CurlOptions& options, const NetworkConfiguration& configuration) {
  options.set(CURLOPT_PROTOCOLS_STR, "http,https");
  options.set(CURLOPT_SSL_VERIFYPEER, 1L);
  options.set(CURLOPT_SSL_VERIFYHOST, 2L);
  options.set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  // Where the system's certificates are in one file, libcurl keeps them in memory, but only without
  // a directory of the same: reading them costs 10 ms a connection.
  if (curl_version_info(CURLVERSION_NOW)->cainfo != nullptr) options.set(CURLOPT_CAPATH, nullptr);
  if (!configuration.caFile.empty()) {
    options.set(CURLOPT_SSL_CTX_FUNCTION, &trustAlso);
    options.set(CURLOPT_SSL_CTX_DATA, configuration.caFile.c_str());
  }
  // An empty proxy also shuts out the one that the environment names.
  options.set(CURLOPT_PROXY, "");
  options.set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  options.set(CURLOPT_FOLLOWLOCATION, 0L);
}

void setConnection(CurlOptions& options, const NetworkConfiguration& configuration, bool isHttps,
                   std::size_t bufferSize) {
  options.set(CURLOPT_NOSIGNAL, 1L);
  // Ending a transfer must not wait for a name server that does not answer.
  options.set(CURLOPT_QUICK_EXIT, 1L);
  options.set(CURLOPT_TCP_NODELAY, 1L);
  options.set(CURLOPT_TCP_KEEPALIVE, 1L);
  options.set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(configuration.connectTimeout.count()));
  options.set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_2TLS});
  // Only where HTTP/2 is possible: rather a stream on a connection that is being made than another
  // connection.
  options.set(CURLOPT_PIPEWAIT, isHttps ? 1L : 0L);
  options.set(CURLOPT_BUFFERSIZE, static_cast<long>(std::min(bufferSize, tuning::kReceiveBuffer)));
}

std::string_view summaryOf(CURLcode code) noexcept {
  switch (code) {
    case CURLE_COULDNT_RESOLVE_HOST:
      return "The host name could not be resolved";
    case CURLE_COULDNT_CONNECT:
      return "No connection could be made";
    case CURLE_OPERATION_TIMEDOUT:
      return "The connection was not made in time";
    case CURLE_PARTIAL_FILE:
      return "The answer was cut short";
    case CURLE_GOT_NOTHING:
      return "The server closed the connection without an answer";
    case CURLE_SEND_ERROR:
      return "The connection broke while sending";
    case CURLE_RECV_ERROR:
      return "The connection broke while receiving";
    case CURLE_PEER_FAILED_VERIFICATION:
      return "The server's certificate is not trusted";
    case CURLE_SSL_CACERT_BADFILE:
      return "The file of trusted certificates cannot be used";
    case CURLE_SSL_CONNECT_ERROR:
      return "No secure connection could be made";
    default:
      return curl_easy_strerror(code);
  }
}

ErrorPtr makeCurlError(CURLcode code, std::string_view text, const std::string& url) {
  Dictionary userInfo{
      {std::string(kLocalizedDescriptionKey), fmt::format("{} ({})", text, url)},
      {std::string(kErrorUrlKey), url},
      {std::string(kErrorCurlCodeKey), static_cast<std::int64_t>(code)},
  };
  return std::make_shared<Error>(std::string(kHttpTransportErrorDomain),
                                 static_cast<std::int64_t>(code), std::move(userInfo));
}

/// Runs a step of a transfer: no exception may pass through libcurl, or lose the transfer on the
/// way through the engine.
template <typename Work>
auto guarded(ErrorPtr& failure, decltype(std::declval<Work>()()) onFailure, const Work& work) {
  try {
    return work();
  } catch (const std::exception& exception) {
    failure = makeTransportError(HttpTransportError::kNoResources, exception.what());
    return onFailure;
  }
}

bool isBlank(const std::string& value) noexcept {
  return value.find_first_not_of(" \t") == std::string::npos;
}

/// Two of them would be read differently by different servers, and one without a value names none.
std::vector<HttpHeader> withOneHost(std::vector<HttpHeader> headers) {
  bool hasOne = false;
  std::erase_if(headers, [&hasOne](const HttpHeader& header) {
    return isHostHeader(header.name) && (isBlank(header.value) || std::exchange(hasOne, true));
  });
  return headers;
}

}  // namespace

CurlTransfer::CurlTransfer(HttpRequest request, CurlUrl url, HttpCompletion completion)
    : method_(request.method),
      spoolDirectory_(std::move(request.spoolDirectory)),
      firstHost_(url.host()),
      headers_(withOneHost(std::move(request.headers))),
      body_(readerFor(request)),
      completion_(std::move(completion)),
      url_(std::move(url)) {}

ErrorPtr CurlTransfer::prepare(CURL* easy, const CurlCommon& common, std::size_t bufferSize) {
  ErrorPtr thrown;
  ErrorPtr refused = guarded(thrown, ErrorPtr(), [&] { return setUp(easy, common, bufferSize); });
  return thrown != nullptr ? thrown : refused;
}

ErrorPtr CurlTransfer::setUp(CURL* easy, const CurlCommon& common, std::size_t bufferSize) {
  easy_ = easy;
  caFile_ = common.configuration.caFile;
  head_ = ResponseHead();
  sink_.emplace(spoolDirectory_, std::min(bufferSize, tuning::kGatherBuffer));
  bodyBegan_ = discardsBody_ = false;
  discarded_ = bytesMoved_ = 0;
  lastMove_ = Clock::now();
  errorText_.front() = '\0';  // what was said of a redirect is not said of its target
  if (auto error = buildHeaderList()) return error;

  CurlOptions options(easy);
  setSecurity(options, common.configuration);
  setConnection(options, common.configuration, url_.isHttps(), bufferSize);
  CURLSH* const share = shareFor(common);
  options.set(CURLOPT_SHARE, share);
  // No file: the empty name only starts the cookie engine.
  if (share == common.withCookies) options.set(CURLOPT_COOKIEFILE, "");
  options.set(CURLOPT_CURLU, url_.handle());
  options.set(CURLOPT_PATH_AS_IS, 1L);
  options.set(CURLOPT_HTTPHEADER, headerList_.get());
  options.set(CURLOPT_ERRORBUFFER, errorText_.data());
  options.set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
  options.set(CURLOPT_HEADERDATA, this);
  options.set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
  options.set(CURLOPT_WRITEDATA, this);
  if (body_) setBody(options, bufferSize);
  options.set(CURLOPT_CUSTOMREQUEST, nameOf(method_));
  if (options.firstError() == CURLE_OK) return nullptr;
  return makeCurlError(options.firstError(), curl_easy_strerror(options.firstError()), safeUrl());
}

void CurlTransfer::setBody(CurlOptions& options, std::size_t bufferSize) {
  static_cast<void>(body_->seek(0));  // the start is always there
  options.set(CURLOPT_UPLOAD, 1L);
  options.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body_->size()));
  options.set(CURLOPT_UPLOAD_BUFFERSIZE,
              static_cast<long>(std::min(bufferSize, tuning::kUploadBuffer)));
  options.set(CURLOPT_READFUNCTION, &CurlTransfer::onRead);
  options.set(CURLOPT_READDATA, this);
  options.set(CURLOPT_SEEKFUNCTION, &CurlTransfer::onSeek);
  options.set(CURLOPT_SEEKDATA, this);
}

void CurlTransfer::release() noexcept {
  easy_ = nullptr;
  headerList_.reset();
  sink_.reset();
}

/// libcurl looks cookies up by the Host header. Cookies of a server that is only named there are
/// not for the one that is connected to.
bool CurlTransfer::namesAnotherHost() const {
  return std::any_of(headers_.begin(), headers_.end(), [this](const HttpHeader& header) {
    return isHostHeader(header.name) && !url_.isNamedBy(header.value);
  });
}

CURLSH* CurlTransfer::shareFor(const CurlCommon& common) const {
  if (namesAnotherHost()) return common.withoutCookies;
  switch (common.cookies->acceptPolicy()) {
    case CookieAcceptPolicy::kAlways:
      return common.withCookies;
    case CookieAcceptPolicy::kNever:
      return common.withoutCookies;
    case CookieAcceptPolicy::kOnlyFromMainDocumentDomain:
      return url_.host() == firstHost_ ? common.withCookies : common.withoutCookies;
  }
  return common.withoutCookies;
}

ErrorPtr CurlTransfer::buildHeaderList() {
  headerList_.reset();
  const auto append = [this](const std::string& line) {
    // On failure the list that there is stays valid.
    curl_slist* list = curl_slist_append(headerList_.get(), line.c_str());
    if (list == nullptr) return false;
    static_cast<void>(headerList_.release());
    headerList_.reset(list);
    return true;
  };
  bool complete = append("Expect:");  // never wait for a "100 Continue"
  for (const HttpHeader& header : headers_) {
    if (isSetByTransport(header.name)) continue;
    // "Name:" would suppress the header; the semicolon sends it without a value.
    const std::string line =
        isBlank(header.value) ? header.name + ";" : header.name + ": " + header.value;
    complete = complete && append(line);
  }
  if (complete) return nullptr;
  return makeTransportError(HttpTransportError::kNoResources, "Out of memory.", safeUrl());
}

std::size_t CurlTransfer::onHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const std::string_view line(bytes, size * count);
  return guarded(transfer.failure_, std::size_t{0}, [&]() -> std::size_t {
    if (transfer.head_.addLine(line)) return line.size();
    transfer.failure_ =
        makeTransportError(HttpTransportError::kHeadersTooLarge,
                           "The server sends headers without end.", transfer.safeUrl());
    return 0;
  });
}

std::size_t CurlTransfer::onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const std::string_view piece(bytes, size * count);
  return guarded(transfer.failure_, std::size_t{0},
                 [&]() { return transfer.takeBody(piece) ? piece.size() : std::size_t{0}; });
}

bool CurlTransfer::takeBody(std::string_view bytes) {
  if (!std::exchange(bodyBegan_, true)) {
    discardsBody_ = head_.redirectLocation().has_value();
    curl_off_t announced = -1;
    if (!discardsBody_ &&
        curl_easy_getinfo(easy_, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &announced) == CURLE_OK &&
        announced > 0) {
      if (auto ready = sink_->expect(static_cast<std::uint64_t>(announced)); !ready) {
        failBodyNotStored(*ready.error());
        return false;
      }
    }
  }
  if (discardsBody_) {
    discarded_ += bytes.size();
    return discarded_ <= tuning::kMaxRedirectBody;
  }
  auto written = sink_->write(bytes);
  if (!written) failBodyNotStored(*written.error());
  return written.ok();
}

void CurlTransfer::failBodyNotStored(const Error& cause) {
  failure_ = makeTransportError(HttpTransportError::kResponseBodyNotStored,
                                "The answer could not be stored", cause, safeUrl());
}

std::size_t CurlTransfer::onRead(char* buffer, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  return guarded(transfer.failure_, std::size_t{CURL_READFUNC_ABORT}, [&]() -> std::size_t {
    const auto filled = transfer.body_->read({buffer, size * count});
    if (filled) return *filled;
    transfer.failure_ = makeTransportError(HttpTransportError::kRequestBodyUnreadable,
                                           "The data to send could not be read", *filled.error(),
                                           transfer.safeUrl());
    return CURL_READFUNC_ABORT;
  });
}

int CurlTransfer::onSeek(void* self, curl_off_t offset, int origin) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const bool done =
      origin == SEEK_SET && offset >= 0 && transfer.body_->seek(static_cast<std::uint64_t>(offset));
  return done ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

bool CurlTransfer::goesOnAfter(CURLcode code) {
  const bool goesOn = guarded(failure_, false, [&] { return judge(code); });
  if (failure_ != nullptr) end_ = {std::nullopt, std::move(failure_)};
  return goesOn;
}

bool CurlTransfer::judge(CURLcode code) {
  // The body of a redirect was cut by ourselves.
  const bool isRedirectCut = discardsBody_ && discarded_ > tuning::kMaxRedirectBody;
  if (failure_ == nullptr && code != CURLE_OK && !isRedirectCut) failure_ = describe(code);
  if (failure_ == nullptr) {
    if (const auto location = head_.redirectLocation()) {
      failure_ = followRedirect(*location);
      if (failure_ == nullptr) return true;
    }
  }
  if (failure_ == nullptr) end_.response = makeResponse();
  return false;
}

ErrorPtr CurlTransfer::followRedirect(const std::string& location) {
  const auto refuse = [this](HttpTransportError code, const std::string& why) {
    return makeTransportError(
        code,
        fmt::format("The server's redirect (status {}) is not followed: {}.", head_.status(), why),
        safeUrl());
  };
  if (method_ != HttpMethod::kGet) {
    return refuse(HttpTransportError::kRedirectRefused,
                  fmt::format("the request is a {}", nameOf(method_)));
  }
  if (redirects_ == tuning::kMaxRedirects) {
    return refuse(HttpTransportError::kTooManyRedirects,
                  fmt::format("there have been {} already", redirects_));
  }
  auto target = url_.resolve(location);
  if (!target) {
    return refuse(HttpTransportError::kRedirectRefused, target.error()->localizedDescription());
  }
  if (url_.isHttps() && !target->isHttps()) {
    return refuse(HttpTransportError::kRedirectRefused, "it leads from https to http");
  }
  if (!target->hasSameOrigin(url_)) {
    // For good: a way back to the first origin was chosen by the other one.
    std::erase_if(headers_, [](const HttpHeader& header) {
      return isCredentialHeader(header.name) || isHostHeader(header.name);
    });
  }
  url_ = std::move(target).value();
  ++redirects_;
  return nullptr;
}

std::optional<HttpResponse> CurlTransfer::makeResponse() {
  HttpResponse response;
  response.status = head_.status();
  if (sink_->size() > 0 || head_.announcesEntity()) {
    auto body = sink_->take();
    if (!body) {
      failBodyNotStored(*body.error());
      return std::nullopt;
    }
    response.body = std::move(body).value();
  }
  response.headers = head_.takeHeaders();
  return response;
}

ErrorPtr CurlTransfer::describe(CURLcode code) const {
  const std::string_view summary = summaryOf(code);
  const std::string_view detail =
      code == CURLE_SSL_CACERT_BADFILE ? caFile_ : std::string_view(errorText_.data());
  const std::string text = detail.empty() || detail == summary
                               ? std::string(summary)
                               : fmt::format("{}: {}", summary, detail);
  return makeCurlError(code, text, safeUrl());
}

ErrorPtr CurlTransfer::checkStall(Clock::time_point now, std::chrono::milliseconds stallTimeout) {
  curl_off_t sent = 0;
  curl_off_t received = 0;
  curl_off_t beforeTransfer = 0;
  long headerBytes = 0;
  // These four cannot fail on a handle that is in use; a zero would only delay the time-out.
  static_cast<void>(curl_easy_getinfo(easy_, CURLINFO_SIZE_UPLOAD_T, &sent));
  static_cast<void>(curl_easy_getinfo(easy_, CURLINFO_SIZE_DOWNLOAD_T, &received));
  static_cast<void>(curl_easy_getinfo(easy_, CURLINFO_HEADER_SIZE, &headerBytes));
  static_cast<void>(curl_easy_getinfo(easy_, CURLINFO_PRETRANSFER_TIME_T, &beforeTransfer));

  // While it connects libcurl's own time-out is in force; while it waits for a stream of a busy
  // HTTP/2 connection there is none.
  if (beforeTransfer == 0) {
    lastMove_ = now;
    return nullptr;
  }
  const auto moved = static_cast<std::uint64_t>(sent) + static_cast<std::uint64_t>(received) +
                     static_cast<std::uint64_t>(headerBytes);
  if (moved != bytesMoved_) {
    bytesMoved_ = moved;
    lastMove_ = now;
  }
  if (now - lastMove_ < stallTimeout) return nullptr;
  return makeCurlError(CURLE_OPERATION_TIMEDOUT,
                       fmt::format("No byte has moved for {} s",
                                   std::chrono::duration<double>(stallTimeout).count()),
                       safeUrl());
}

}  // namespace varo::platform
