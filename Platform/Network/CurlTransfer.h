#pragma once

#include "Platform/Foundation/BufferPool.h"
#include "Platform/Network/CurlHandles.h"
#include "Platform/Network/CurlMovement.h"
#include "Platform/Network/CurlPacer.h"
#include "Platform/Network/CurlProxy.h"
#include "Platform/Network/CurlShares.h"
#include "Platform/Network/CurlUrl.h"
#include "Platform/Network/HttpCookieStore.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/NetworkConfiguration.h"
#include "Platform/Network/RequestBodyReader.h"
#include "Platform/Network/RequestObserver.h"
#include "Platform/Network/ResponseHead.h"
#include "Platform/Network/ResponseSink.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varo::platform {

class CurlOptions;

/// What the transfers of one transport have in common. Constant while they run.
struct CurlCommon {
  NetworkConfiguration configuration;
  CurlProxies proxies;
  HttpCookieStore* cookies = nullptr;
  CurlShares* shares = nullptr;
  CurlSockets* sockets = nullptr;
  CurlPacer* pacer = nullptr;
  /// For response bodies that stay in memory.
  std::shared_ptr<BufferPool> buffers = nullptr;
};

/// One request from `send` to its completion, over all its redirects. Made on any thread, then used
/// by the I/O thread only, but for `markCancelled`. Private to the curl adapter.
class CurlTransfer {
 public:
  using Clock = CurlMovement::Clock;

  /// `request` has been checked; `url` is its parsed address.
  CurlTransfer(HttpRequest request, CurlUrl url, HttpCompletion completion);
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// Sets up a fresh or reset handle for the next exchange. The transfer and `common` must outlive
  /// its use. `bufferSize`, in bytes, bounds each of the transfer's buffers. Returns an error where
  /// libcurl refuses an option.
  [[nodiscard]] ErrorPtr prepare(CURL* easy, const CurlCommon& common, std::size_t bufferSize);

  /// The handle of the exchange that runs, or null.
  [[nodiscard]] CURL* handle() const noexcept { return easy_; }
  /// The handle is used no more.
  void release() noexcept;

  /// Takes in the end of an exchange. True: the request goes on with another exchange, for a
  /// redirect; call `prepare` again. False: it came to `takeEnd`.
  [[nodiscard]] bool goesOnAfter(CURLcode code);

  /// How long no byte may move; known once it was prepared.
  [[nodiscard]] std::chrono::milliseconds stallTimeout() const noexcept { return stallLimit_; }
  /// An error where no byte has moved for that long, else null. While a rate limit holds it back,
  /// none has to.
  [[nodiscard]] ErrorPtr checkStall(Clock::time_point now);

  /// From now on takes no byte in and gives none out, if the I/O thread is at it right now; it ends
  /// once that thread hears of it. Thread-safe.
  void markCancelled() noexcept { cancelled_ = true; }
  [[nodiscard]] ErrorPtr cancelledError() const;
  /// Has the connection closed with the exchange that runs, unless others use it.
  void giveUpConnection() noexcept;

  struct End {
    std::optional<HttpResponse> response;
    ErrorPtr error;
  };
  /// What `goesOnAfter` came to.
  [[nodiscard]] End takeEnd() { return std::move(end_); }

  /// The completion, at the first call; null from then on.
  /// With it goes what the request has beside it: destroying that may end the transport, which the
  /// I/O thread must not do.
  [[nodiscard]] HttpCompletion takeCompletion() {
    told_ = nullptr;
    return std::exchange(completion_, nullptr);
  }
  [[nodiscard]] bool isCompleted() const noexcept { return completion_ == nullptr; }

  /// For errors.
  [[nodiscard]] std::string safeUrl() const { return url_.safeText(); }

 private:
  /// Who is told while it runs; each may be null.
  struct Told {
    std::shared_ptr<BodyReceiver> receiver;
    std::function<void(std::uint64_t)> onSent;
    std::function<void(std::uint64_t)> onReceived;
    std::function<void(int, const std::vector<HttpHeader>&)> onHead;
    std::shared_ptr<RequestMeter> meter;
  };

  // Called by libcurl, during `curl_multi_perform`; `self` is the transfer.
  static int onConnected(void* self, char* remoteIp, char* localIp, int remotePort, int localPort);
  static std::size_t onHeader(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t onBody(char* bytes, std::size_t size, std::size_t count, void* self);
  static std::size_t onRead(char* buffer, std::size_t size, std::size_t count, void* self);
  static int onSeek(void* self, curl_off_t offset, int origin);

  [[nodiscard]] ErrorPtr setUp(CURL* easy, const CurlCommon& common, std::size_t bufferSize);
  void setBody(CurlOptions& options, std::size_t bufferSize);
  [[nodiscard]] bool takeHeaderLine(std::string_view line);
  [[nodiscard]] bool acceptHead();
  [[nodiscard]] bool canHaveEntity() const noexcept {
    return method_ != HttpMethod::kHead && head_.canHaveEntity();
  }
  /// What libcurl is to be told: the number of the bytes, another one to fail, or to pause.
  [[nodiscard]] std::size_t takePiece(std::string_view bytes);
  [[nodiscard]] std::size_t givePiece(char* buffer, std::size_t size);
  [[nodiscard]] bool takeBody(std::string_view bytes);
  [[nodiscard]] bool failTooLarge();
  [[nodiscard]] bool isCancelled();
  [[nodiscard]] bool judge(CURLcode code);
  [[nodiscard]] ErrorPtr buildHeaderList();
  [[nodiscard]] ErrorPtr noMemory() const;
  [[nodiscard]] ErrorPtr followRedirect(const std::string& location);
  [[nodiscard]] ErrorPtr describe(CURLcode code) const;
  [[nodiscard]] bool namesAnotherHost() const;
  [[nodiscard]] bool mayHaveCookies(const CurlCommon& common) const;
  [[nodiscard]] std::optional<HttpResponse> makeResponse();
  void failBodyNotStored(const Error& cause);
  [[nodiscard]] static HttpCompletion keeping(std::shared_ptr<const Told> told,
                                              HttpCompletion completion);
  [[nodiscard]] bool stored(const Result<void>& done);
  void tellSent() const;
  void measureExchange() noexcept;

  const HttpMethod method_;
  const std::string spoolDirectory_;
  const ResponseLimits limits_;
  const std::optional<std::chrono::milliseconds> connectTimeout_;  // as the request has them
  const std::optional<std::chrono::milliseconds> stallTimeout_;
  const std::shared_ptr<RateLimit> rateLimit_;  // may be null
  std::vector<HttpHeader> headers_;             // at most one of them a Host, with a value
  std::optional<RequestBodyReader> body_;
  const Told* told_;        // owned by the completion
  RequestMeasure measure_;  // of the exchanges so far, where there is a meter
  Clock::time_point made_;  // the same
  HttpCompletion completion_;
  End end_;
  std::atomic<bool> cancelled_{false};

  // Of the current exchange.
  const CurlCommon* common_ = nullptr;
  const CurlProxy* proxy_ = nullptr;  // of the transport; null: none
  CurlUrl url_;
  CURL* easy_ = nullptr;
  CurlShares::Ptr share_;
  CurlList headerList_;
  ResponseHead head_;
  std::optional<ResponseSink> sink_;
  bool receives_ = false;       // the receiver, in place of the sink
  std::uint64_t received_ = 0;  // bytes of the body
  ErrorPtr failure_;            // found by a callback, more precise than libcurl's code
  bool discardsBody_ = false;   // of a redirect
  std::uint64_t discarded_ = 0;
  int redirects_ = 0;
  int attempts_ = 0;  // to send it
  Clock::time_point begun_;
  CurlMovement movement_;
  std::chrono::milliseconds stallLimit_{0};
  std::array<char, CURL_ERROR_SIZE> errorText_{};
};

}  // namespace varo::platform
