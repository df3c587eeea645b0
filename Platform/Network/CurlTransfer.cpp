#include "Platform/Network/CurlTransfer.h"

#include "Platform/Foundation/Error.h"
#include "Platform/Network/CurlErrors.h"
#include "Platform/Network/CurlOptions.h"
#include "Platform/Network/CurlSetup.h"
#include "Platform/Network/HeaderRules.h"
#include "Platform/Network/HttpTransportError.h"

#include <fmt/format.h>

#include <algorithm>
#include <exception>
#include <utility>

namespace varo::platform {
namespace {

/// POST and PUT always have a body, if one of zero bytes.
std::optional<RequestBodyReader> readerFor(HttpRequest& request) {
  if (request.body) return RequestBodyReader(*std::move(request.body));
  if (request.method == HttpMethod::kPost || request.method == HttpMethod::kPut) {
    return RequestBodyReader({});
  }
  return std::nullopt;
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
      limits_(request.limits),
      connectTimeout_(request.connectTimeout),
      stallTimeout_(request.stallTimeout),
      rateLimit_(std::move(request.rateLimit)),
      headers_(withOneHost(std::move(request.headers))),
      body_(readerFor(request)),
      url_(std::move(url)) {
  auto told = std::make_shared<const Told>(
      Told{std::move(request.receiver), std::move(request.onSent), std::move(request.onReceived),
           std::move(request.onHead), std::move(request.meter)});
  told_ = told.get();
  if (told_->meter != nullptr) made_ = Clock::now();
  completion_ = keeping(std::move(told), std::move(completion));
}

HttpCompletion CurlTransfer::keeping(std::shared_ptr<const Told> told, HttpCompletion completion) {
  return [told = std::move(told), completion = std::move(completion)](
             std::optional<HttpResponse> response, ErrorPtr error) {
    completion(std::move(response), std::move(error));
  };
}

ErrorPtr CurlTransfer::prepare(CURL* easy, const CurlCommon& common, std::size_t bufferSize) {
  ErrorPtr thrown;
  ErrorPtr refused = guarded(thrown, ErrorPtr(), [&] { return setUp(easy, common, bufferSize); });
  return thrown != nullptr ? thrown : refused;
}

ErrorPtr CurlTransfer::setUp(CURL* easy, const CurlCommon& common, std::size_t bufferSize) {
  easy_ = easy;
  common_ = &common;
  proxy_ = common.proxies.find(url_);
  head_ = ResponseHead();
  sink_.emplace(spoolDirectory_, std::min(bufferSize, tuning::kWriteSize), common.buffers);
  receives_ = false;
  received_ = 0;
  discardsBody_ = false;
  discarded_ = 0;
  attempts_ = 0;
  begun_ = Clock::now();
  movement_.begin(begun_);
  stallLimit_ = boundedTimeout(stallTimeout_, common.configuration.stallTimeout);
  errorText_.front() = '\0';  // what was said of a redirect is not said of its target
  if (auto error = buildHeaderList()) return error;
  // What is in a buffer has moved already, as far as the peer can see.
  bufferSize = std::max(common.pacer->piece(rateLimit_.get(), bufferSize), tuning::kShortBuffer);

  CurlOptions options(easy);
  setSecurity(options, common.configuration);
  setProxy(options, proxy_);
  setConnection(options, boundedTimeout(connectTimeout_, common.configuration.connectTimeout),
                url_.isHttps(), body_ ? tuning::kShortBuffer : bufferSize);
  if (method_ == HttpMethod::kPost) {
    options.set(CURLOPT_MAXAGE_CONN, static_cast<long>(tuning::kLongestIdleForPost.count()));
  }
  options.set(CURLOPT_SOCKOPTFUNCTION, &CurlSockets::onOpen);
  options.set(CURLOPT_SOCKOPTDATA, common.sockets);
  options.set(CURLOPT_PREREQFUNCTION, &CurlTransfer::onConnected);
  options.set(CURLOPT_PREREQDATA, this);
  const bool hasCookies = mayHaveCookies(common);
  share_ = hasCookies ? common.shares->withCookies(headers_) : common.shares->withoutCookies();
  if (share_ == nullptr) return noMemory();
  options.set(CURLOPT_SHARE, share_.get());
  // No file: the empty name only starts the cookie engine.
  if (hasCookies) options.set(CURLOPT_COOKIEFILE, "");
  options.set(CURLOPT_CURLU, url_.handle());
  // A path may be signed, dots included.
  options.set(CURLOPT_PATH_AS_IS, 1L);
  options.set(CURLOPT_HTTPHEADER, headerList_.get());
  const std::string& userAgent = common.configuration.userAgent;
  if (!userAgent.empty()) options.set(CURLOPT_USERAGENT, userAgent.c_str());
  options.set(CURLOPT_ERRORBUFFER, errorText_.data());
  options.set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
  options.set(CURLOPT_HEADERDATA, this);
  options.set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
  options.set(CURLOPT_WRITEDATA, this);
  if (method_ == HttpMethod::kHead) options.set(CURLOPT_NOBODY, 1L);
  if (body_) setBody(options, bufferSize);
  // After the body, which makes a PUT of every request.
  options.set(CURLOPT_CUSTOMREQUEST, nameOf(method_));
  if (options.firstError() == CURLE_OK) return nullptr;
  return makeCurlError(options.firstError(), curl_easy_strerror(options.firstError()), safeUrl());
}

void CurlTransfer::setBody(CurlOptions& options, std::size_t bufferSize) {
  static_cast<void>(body_->seek(0));  // the start is always there
  options.set(CURLOPT_UPLOAD, 1L);
  options.set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(body_->size()));
  const std::uint64_t needed = std::max<std::uint64_t>(body_->size(), tuning::kShortBuffer);
  options.set(
      CURLOPT_UPLOAD_BUFFERSIZE,
      static_cast<long>(std::min<std::uint64_t>({bufferSize, tuning::kUploadBuffer, needed})));
  options.set(CURLOPT_READFUNCTION, &CurlTransfer::onRead);
  options.set(CURLOPT_READDATA, this);
  options.set(CURLOPT_SEEKFUNCTION, &CurlTransfer::onSeek);
  options.set(CURLOPT_SEEKDATA, this);
}

void CurlTransfer::release() noexcept {
  if (told_->meter != nullptr) measureExchange();
  // Before the share may go, and since a reset would leave it with the handle. Cannot fail.
  static_cast<void>((curl_easy_setopt)(easy_, CURLOPT_SHARE, nullptr));
  easy_ = nullptr;
  share_.reset();
  headerList_.reset();
  sink_.reset();
}

/// What libcurl does not know stays as it is.
void CurlTransfer::measureExchange() noexcept {
  using std::chrono::duration_cast;
  using std::chrono::microseconds;
  const auto number = [this](CURLINFO which) {
    curl_off_t value = 0;
    const bool isKnown = curl_easy_getinfo(easy_, which, &value) == CURLE_OK && value > 0;
    return isKnown ? std::optional(value) : std::nullopt;
  };
  const auto before = duration_cast<microseconds>(begun_ - made_);
  if (!measure_.queue) measure_.queue = before;
  long connections = 0;
  if (curl_easy_getinfo(easy_, CURLINFO_NUM_CONNECTS, &connections) == CURLE_OK &&
      connections > 0) {
    const auto tls = number(CURLINFO_APPCONNECT_TIME_T);
    if (const auto took = tls ? tls : number(CURLINFO_CONNECT_TIME_T)) {
      measure_.connect = measure_.connect.value_or(microseconds(0)) + microseconds(*took);
    }
  }
  if (const auto first = number(CURLINFO_STARTTRANSFER_TIME_T); first && head_.status() != 0) {
    measure_.firstByte = before + microseconds(*first);
  }
  measure_.sent += static_cast<std::uint64_t>(number(CURLINFO_SIZE_UPLOAD_T).value_or(0));
  measure_.received += received_ + discarded_;
  told_->meter->set(measure_);
}

/// libcurl looks cookies up by the Host header. Cookies of a server that is only named there are
/// not for the one that is connected to.
bool CurlTransfer::namesAnotherHost() const {
  return std::any_of(headers_.begin(), headers_.end(), [this](const HttpHeader& header) {
    return isHostHeader(header.name) && !url_.isNamedBy(header.value);
  });
}

bool CurlTransfer::mayHaveCookies(const CurlCommon& common) const {
  if (common.cookies->acceptPolicy() != CookieAcceptPolicy::kAlways) return false;
  // Cookies are kept by credentials, and a signature is of one request.
  const bool isSigned = std::any_of(headers_.begin(), headers_.end(), [](const auto& header) {
    return isSignatureHeader(header.name);
  });
  return !isSigned && !namesAnotherHost();
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
  return complete ? nullptr : noMemory();
}

ErrorPtr CurlTransfer::noMemory() const {
  return makeTransportError(HttpTransportError::kNoResources, "Out of memory.", safeUrl());
}

int CurlTransfer::onConnected(void* self, char* /*remoteIp*/, char* /*localIp*/, int remotePort,
                              int localPort) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  return guarded(transfer.failure_, CURL_PREREQFUNC_ABORT, [&] {
    transfer.movement_.setConnection(transfer.easy_,
                                     transfer.common_->sockets->find(localPort, remotePort));
    // libcurl sends a request again where a kept connection breaks before the response. The first
    // may have been carried out, and a POST creates something each time.
    const bool isAgain = transfer.attempts_++ > 0;
    if (!isAgain || transfer.method_ != HttpMethod::kPost) return CURL_PREREQFUNC_OK;
    transfer.failure_ = describeCurlError(
        CURLE_GOT_NOTHING, "a POST is not sent again, since it may have been carried out",
        transfer.safeUrl());
    return CURL_PREREQFUNC_ABORT;
  });
}

/// Called for each line of the head, the status and the empty one too, of interim responses as
/// well, and of trailers behind the body. Any other number than that of the bytes ends the
/// exchange; so it is with `onBody`.
std::size_t CurlTransfer::onHeader(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const std::string_view line(bytes, size * count);
  return guarded(transfer.failure_, std::size_t{0},
                 [&]() { return transfer.takeHeaderLine(line) ? line.size() : std::size_t{0}; });
}

bool CurlTransfer::takeHeaderLine(std::string_view line) {
  if (isCancelled()) return false;
  const bool wasComplete = head_.isComplete();
  if (!head_.addLine(line)) {
    failure_ = makeTransportError(HttpTransportError::kHeadersTooLarge,
                                  "The server sends headers without end.", safeUrl());
    return false;
  }
  // Trailers come behind a head that was accepted.
  return wasComplete || !head_.isComplete() || acceptHead();
}

bool CurlTransfer::acceptHead() {
  constexpr int kProxyAuthenticationRequired = 407;
  if (proxy_ != nullptr && head_.status() == kProxyAuthenticationRequired) {
    failure_ = makeProxyRefusal(*proxy_, safeUrl());
    return false;
  }
  const auto announced = head_.contentLength();
  if (!announced) {
    failure_ = makeCurlError(CURLE_WEIRD_SERVER_REPLY, announced.error()->localizedDescription(),
                             safeUrl());
    return false;
  }
  discardsBody_ = head_.isRedirect();
  if (discardsBody_ || !canHaveEntity()) return true;
  if (*announced > limits_.forStatus(head_.status())) return failTooLarge();
  const bool isGood = head_.status() / 100 == 2;
  if (isGood && told_->onHead != nullptr) told_->onHead(head_.status(), head_.headers());
  receives_ = told_->receiver != nullptr && isGood;
  if (receives_) {
    const bool isSaid = head_.find("Content-Length").has_value();
    return stored(told_->receiver->begin(head_.status(), head_.headers(),
                                         isSaid ? std::optional(*announced) : std::nullopt));
  }
  return *announced == 0U || stored(sink_->expect(*announced));
}

bool CurlTransfer::stored(const Result<void>& done) {
  if (!done) failBodyNotStored(*done.error());
  return done.ok();
}

std::size_t CurlTransfer::onBody(char* bytes, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const std::string_view piece(bytes, size * count);
  return guarded(transfer.failure_, std::size_t{0}, [&]() { return transfer.takePiece(piece); });
}

std::size_t CurlTransfer::takePiece(std::string_view bytes) {
  using enum CurlPacer::Direction;
  if (isCancelled()) return 0;
  CurlPacer& pacer = *common_->pacer;
  if (!pacer.mayMove(easy_, rateLimit_.get(), kReceiving)) return CURL_WRITEFUNC_PAUSE;
  pacer.moved(rateLimit_.get(), kReceiving, bytes.size());
  return takeBody(bytes) ? bytes.size() : 0;
}

bool CurlTransfer::takeBody(std::string_view bytes) {
  if (discardsBody_) {
    discarded_ += bytes.size();
    return discarded_ <= tuning::kMaxRedirectBody;
  }
  received_ += bytes.size();
  if (received_ > limits_.forStatus(head_.status())) return failTooLarge();
  const bool isStored = stored(receives_ ? told_->receiver->write(bytes) : sink_->write(bytes));
  if (isStored && told_->onReceived != nullptr) told_->onReceived(received_);
  return isStored;
}

bool CurlTransfer::failTooLarge() {
  const int status = head_.status();
  failure_ = makeTransportError(
      HttpTransportError::kResponseTooLarge,
      fmt::format("The response (status {}) is longer than the {} bytes that are allowed", status,
                  limits_.forStatus(status)),
      safeUrl(), {{std::string(kErrorStatusKey), status}});
  giveUpConnection();
  return false;
}

bool CurlTransfer::isCancelled() {
  if (!cancelled_) return false;
  failure_ = cancelledError();
  giveUpConnection();
  return true;
}

ErrorPtr CurlTransfer::cancelledError() const {
  return makeTransportError(HttpTransportError::kCancelled, "The transfer was cancelled.",
                            safeUrl());
}

void CurlTransfer::giveUpConnection() noexcept {
  // Over HTTP/2 libcurl would keep it, and what is on its way would still come in. Where other
  // streams use it, it stays until they end. Cannot fail.
  static_cast<void>((curl_easy_setopt)(easy_, CURLOPT_FORBID_REUSE, 1L));
}

void CurlTransfer::failBodyNotStored(const Error& cause) {
  failure_ = makeTransportError(HttpTransportError::kResponseBodyNotStored,
                                "The response could not be stored", cause, safeUrl());
}

std::size_t CurlTransfer::onRead(char* buffer, std::size_t size, std::size_t count, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  return guarded(transfer.failure_, std::size_t{CURL_READFUNC_ABORT},
                 [&]() { return transfer.givePiece(buffer, size * count); });
}

std::size_t CurlTransfer::givePiece(char* buffer, std::size_t size) {
  using enum CurlPacer::Direction;
  if (isCancelled()) return CURL_READFUNC_ABORT;
  CurlPacer& pacer = *common_->pacer;
  if (!pacer.mayMove(easy_, rateLimit_.get(), kSending)) return CURL_READFUNC_PAUSE;
  const auto filled = body_->read({buffer, pacer.piece(rateLimit_.get(), size)});
  if (filled) {
    pacer.moved(rateLimit_.get(), kSending, *filled);
    tellSent();
    return *filled;
  }
  failure_ = makeTransportError(HttpTransportError::kRequestBodyUnreadable,
                                "The data to send could not be read", *filled.error(), safeUrl());
  return CURL_READFUNC_ABORT;
}

void CurlTransfer::tellSent() const {
  if (told_->onSent != nullptr) told_->onSent(body_->position());
}

/// libcurl goes back to the start where it sends a request again.
int CurlTransfer::onSeek(void* self, curl_off_t offset, int origin) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const bool done =
      origin == SEEK_SET && offset >= 0 && transfer.body_->seek(static_cast<std::uint64_t>(offset));
  return done ? CURL_SEEKFUNC_OK : CURL_SEEKFUNC_FAIL;
}

bool CurlTransfer::goesOnAfter(CURLcode code) {
  const bool goesOn = guarded(failure_, false, [&] { return judge(code); });
  // A failure that a callback found says more than the code that libcurl makes of it.
  if (failure_ != nullptr) end_ = {std::nullopt, std::move(failure_)};
  return goesOn;
}

bool CurlTransfer::judge(CURLcode code) {
  // The body of a redirect was cut by ourselves.
  const bool isRedirectCut = discardsBody_ && discarded_ > tuning::kMaxRedirectBody;
  if (failure_ == nullptr && code != CURLE_OK && !isRedirectCut) failure_ = describe(code);
  if (failure_ == nullptr) {
    if (head_.isRedirect()) {
      failure_ = followRedirect(std::string(head_.find("Location").value_or("")));
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
  if (location.empty()) return refuse(HttpTransportError::kRedirectRefused, "it names no target");
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
  if (sink_->size() > 0 || canHaveEntity()) {
    auto body = sink_->take();
    if (!body) {
      failBodyNotStored(*body.error());
      return std::nullopt;
    }
    response.body = std::move(body).value();
  }
  response.bodyWasReceived = receives_;
  response.headers = head_.takeHeaders();
  return response;
}

ErrorPtr CurlTransfer::describe(CURLcode code) const {
  std::string detail = errorText_.data();
  if (const std::string file = blamedFile(code, common_->configuration); !file.empty()) {
    const bool saysMore = code != CURLE_SSL_CACERT_BADFILE && !detail.empty();
    detail = saysMore ? fmt::format("{} ({})", detail, file) : file;
  }
  const bool wasSent = attempts_ > 0;
  return proxy_ == nullptr ? describeCurlError(code, detail, safeUrl(), wasSent)
                           : describeProxiedError(easy_, code, detail, *proxy_, safeUrl(), wasSent);
}

ErrorPtr CurlTransfer::checkStall(Clock::time_point now) {
  if (common_->pacer->isPaused(easy_)) {
    movement_.excuse(now);
    return nullptr;
  }
  if (!movement_.hasStalled(easy_, now, stallLimit_)) return nullptr;
  return makeCurlError(
      CURLE_OPERATION_TIMEDOUT,
      fmt::format("No byte has moved for {} s", std::chrono::duration<double>(stallLimit_).count()),
      safeUrl());
}

}  // namespace varo::platform
