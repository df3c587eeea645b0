#include "Platform/Network/VRONetworkUtility.h"

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/CurlHttpTransport.h"
#include "Platform/Network/RequestEncoder.h"

#include <fmt/format.h>

#include <stop_token>
#include <utility>

namespace varo::platform {
namespace {

using TransferPtr = VRONetworkUtility::TransferPtr;

/// The transports of the process.
class Transports {
 public:
  static Transports& shared() {
    static auto* const instance = new Transports();  // never destroyed, as the runtime
    return *instance;
  }

  std::shared_ptr<HttpTransport> current() {
    registerShutdownOnce();
    const MutexLock lock(mutex_);
    if (installed_ != nullptr) return installed_;
    if (default_ == nullptr) {
      default_ = std::make_shared<CurlHttpTransport>(configuration_, Runtime::shared().pool());
      // What comes too late for the runtime's shutdown must not start a thread.
      if (shutDown_) default_->shutdown();
    }
    return default_;
  }

  /// Returns the one in force before, to be released without the lock.
  std::shared_ptr<HttpTransport> install(std::shared_ptr<HttpTransport> transport) {
    const MutexLock lock(mutex_);
    return std::exchange(installed_, std::move(transport));
  }

  bool configure(const NetworkConfiguration& configuration) {
    const MutexLock lock(mutex_);
    if (default_ != nullptr) return false;
    configuration_ = configuration;
    return true;
  }

 private:
  void registerShutdownOnce() {
    {
      const MutexLock lock(mutex_);
      if (std::exchange(registered_, true)) return;
    }
    Runtime::shared().onShutdown([] { shared().shutdown(); });
    if (Runtime::shared().isShutDown()) shutdown();  // and so the step may never run
  }

  void shutdown() {
    std::shared_ptr<HttpTransport> installed;
    std::shared_ptr<HttpTransport> byDefault;
    {
      const MutexLock lock(mutex_);
      shutDown_ = true;
      installed = installed_;
      byDefault = default_;
    }
    if (installed != nullptr) installed->shutdown();
    if (byDefault != nullptr) byDefault->shutdown();
  }

  Mutex mutex_;
  NetworkConfiguration configuration_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<HttpTransport> default_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<HttpTransport> installed_ VARO_GUARDED_BY(mutex_);
  bool registered_ VARO_GUARDED_BY(mutex_) = false;
  bool shutDown_ VARO_GUARDED_BY(mutex_) = false;
};

NetworkErrorPtr toNetworkError(const Error& error) {
  return std::make_shared<NetworkError>(error.domain(), error.code(), error.userInfo(),
                                        currentCallStack());
}

Dictionary responseInfoOf(const HttpResponse& response) {
  Dictionary fields;
  for (const HttpHeader& header : response.headers) {
    // A peer may send any bytes; values are text.
    std::string name = sanitizeUtf8(header.name);
    std::string value = sanitizeUtf8(header.value);
    for (const DictionaryEntry& known : fields) {
      if (equalIgnoringCase(known.key, name)) {
        value = fmt::format("{}, {}", known.value.textValue(), value);
        name = known.key;
        break;
      }
    }
    fields.set(std::move(name), std::move(value));
  }
  return {{std::string(kHttpResponse),
           std::make_shared<HttpResponseInfo>(response.status, std::move(fields))}};
}

/// The completion of one request, which is cancelled with its operation until it has come.
class Pending {
 public:
  explicit Pending(NetworkCallback callback) : callback_(std::move(callback)) {}

  /// Has a stop that is requested by `cancellation` end the transfer.
  void cancelWith(const std::stop_token& cancellation, const TransferPtr& transfer) {
    // Made outside the lock: it calls back at once where the stop was requested before.
    auto watch = std::make_unique<Watch>(cancellation, [transfer] { transfer->cancel(); });
    const MutexLock lock(mutex_);
    if (!done_) watch_.swap(watch);
  }

  void complete(const std::optional<HttpResponse>& response, const ErrorPtr& error) {
    std::unique_ptr<Watch>
        watch;  // destroyed after the lock: it waits for a call that is under way
    {
      const MutexLock lock(mutex_);
      done_ = true;
      watch.swap(watch_);
    }
    watch.reset();
    const NetworkCallback callback = std::exchange(callback_, nullptr);
    if (!callback) return;
    if (error != nullptr) {
      callback(std::nullopt, {}, toNetworkError(*error));
    } else if (response) {
      callback(response->body, responseInfoOf(*response), nullptr);
    }
  }

 private:
  using Watch = std::stop_callback<std::function<void()>>;

  NetworkCallback callback_;  // touched by `complete` alone, which is called once
  Mutex mutex_;
  bool done_ VARO_GUARDED_BY(mutex_) = false;
  std::unique_ptr<Watch> watch_ VARO_GUARDED_BY(mutex_);
};

TransferPtr send(HttpRequest request, const Dictionary& options, NetworkCallback callback) {
  if (const std::string* directory = options[kSpoolDirectory].text()) {
    request.spoolDirectory = *directory;
  }
  if (const auto value = options[kResponseLimits].objectAs<ResponseLimitsValue>()) {
    request.limits = value->limits;
  }
  const auto settings = options[kRequestSettings].objectAs<RequestSettings>();
  std::shared_ptr<HttpTransport> transport;
  if (settings != nullptr) {
    request.connectTimeout = settings->connectTimeout;
    request.stallTimeout = settings->stallTimeout;
    transport = settings->transport;
  }
  if (transport == nullptr) transport = VRONetworkUtility::transport();
  const auto pending = std::make_shared<Pending>(std::move(callback));
  TransferPtr transfer = transport->send(
      std::move(request), [pending](const std::optional<HttpResponse>& response,
                                    const ErrorPtr& error) { pending->complete(response, error); });
  if (settings != nullptr && transfer != nullptr && settings->cancellation.stop_possible()) {
    pending->cancelWith(settings->cancellation, transfer);
  }
  return transfer;
}

TransferPtr sendWithBody(HttpRequest request, RequestType type, const Value& body,
                         const Dictionary& options, NetworkCallback callback) {
  if (const auto encoded = encodeBody(request, type, body); !encoded) {
    if (!callback) return nullptr;
    Runtime::shared().pool().postOrRun(
        [callback = std::move(callback), error = toNetworkError(*encoded.error())] {
          callback(std::nullopt, {}, error);
        });
    return nullptr;
  }
  return send(std::move(request), options, std::move(callback));
}

}  // namespace

std::optional<std::string> HttpResponseInfo::headerField(std::string_view name) const {
  for (const DictionaryEntry& field : headerFields_) {
    if (equalIgnoringCase(field.key, name)) return field.value.textValue();
  }
  return std::nullopt;
}

std::string HttpResponseInfo::description() const {
  return fmt::format("HTTP status {}, headers {}", statusCode_, Value(headerFields_).description());
}

VRONetworkUtility::TransferPtr VRONetworkUtility::GET(const std::string& url,
                                                      const Dictionary& queryParams,
                                                      const Dictionary& headers,
                                                      const Dictionary& options,
                                                      NetworkCallback callback) {
  return send(encodeRequest(HttpMethod::kGet, url, queryParams, headers), options,
              std::move(callback));
}

VRONetworkUtility::TransferPtr VRONetworkUtility::POST(const std::string& url,
                                                       const Dictionary& queryParams,
                                                       const Dictionary& headers,
                                                       RequestType requestType, const Value& body,
                                                       const Dictionary& options,
                                                       NetworkCallback callback) {
  return sendWithBody(encodeRequest(HttpMethod::kPost, url, queryParams, headers), requestType,
                      body, options, std::move(callback));
}

VRONetworkUtility::TransferPtr VRONetworkUtility::PUT(const std::string& url,
                                                      const Dictionary& queryParams,
                                                      const Dictionary& headers,
                                                      RequestType requestType, const Value& body,
                                                      const Dictionary& options,
                                                      NetworkCallback callback) {
  return sendWithBody(encodeRequest(HttpMethod::kPut, url, queryParams, headers), requestType, body,
                      options, std::move(callback));
}

VRONetworkUtility::TransferPtr VRONetworkUtility::DELETE(const std::string& url,
                                                         const Dictionary& queryParams,
                                                         const Dictionary& headers,
                                                         const Dictionary& options,
                                                         NetworkCallback callback) {
  return send(encodeRequest(HttpMethod::kDelete, url, queryParams, headers), options,
              std::move(callback));
}

std::shared_ptr<HttpTransport> VRONetworkUtility::transport() {
  return Transports::shared().current();
}

void VRONetworkUtility::setTransport(std::shared_ptr<HttpTransport> transport) {
  const auto before = Transports::shared().install(std::move(transport));
}

bool VRONetworkUtility::configure(const NetworkConfiguration& configuration) {
  return Transports::shared().configure(configuration);
}

}  // namespace varo::platform
