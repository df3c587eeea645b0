#include "Platform/Network/VRONetworkUtility.h"

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Runtime.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Network/CurlHttpTransport.h"
#include "Platform/Network/GuardedSend.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/RequestAttempts.h"
#include "Platform/Network/RequestEncoder.h"
#include "Platform/Network/RequestObserver.h"

#include <fmt/format.h>

#include <exception>
#include <new>
#include <utility>

namespace varo::platform {
namespace {

using TransferPtr = VRONetworkUtility::TransferPtr;

/// The transports of the process, and its observer.
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

  std::shared_ptr<RequestObserver> observer() {
    const MutexLock lock(mutex_);
    return observer_;
  }

  /// As `install`.
  std::shared_ptr<RequestObserver> observeBy(std::shared_ptr<RequestObserver> observer) {
    const MutexLock lock(mutex_);
    return std::exchange(observer_, std::move(observer));
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
    // Without the lock: the runtime takes one of its own here.
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
    // Copied out, since a transport ends its requests here and their blocks may ask for a
    // transport.
    if (installed != nullptr) installed->shutdown();
    if (byDefault != nullptr) byDefault->shutdown();
  }

  Mutex mutex_;
  NetworkConfiguration configuration_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<HttpTransport> default_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<HttpTransport> installed_ VARO_GUARDED_BY(mutex_);
  std::shared_ptr<RequestObserver> observer_ VARO_GUARDED_BY(mutex_);
  bool registered_ VARO_GUARDED_BY(mutex_) = false;
  bool shutDown_ VARO_GUARDED_BY(mutex_) = false;
};

NetworkErrorPtr toNetworkError(const Error& error) {
  return std::make_shared<NetworkError>(error.domain(), error.code(), error.userInfo(),
                                        currentCallStack());
}

/// Made while there is memory, for when there is none.
const NetworkErrorPtr& outOfMemory() {
  static const NetworkErrorPtr error = toNetworkError(*makeTransportError(
      HttpTransportError::kNoResources, "There is no memory for the response."));
  return error;
}

Dictionary responseInfoOf(const HttpResponse& response) {
  Dictionary fields;
  for (const HttpHeader& header : response.headers) {
    // A peer may send any bytes; values are text.
    std::string name = sanitizeUtf8(header.name);
    std::string value = sanitizeUtf8(header.value);
    for (const auto& known : fields) {
      // Lines of one name are one list (RFC 9110, 5.3).
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

void report(const NetworkCallback& callback, const std::optional<HttpResponse>& response,
            const ErrorPtr& error) {
  if (!callback) return;
  Dictionary info;
  NetworkErrorPtr failure;
  try {
    if (error != nullptr) {
      failure = toNetworkError(*error);
    } else {
      info = responseInfoOf(*response);
    }
  } catch (const std::bad_alloc&) {
    failure = outOfMemory();
  }
  if (failure != nullptr) {
    callback(std::nullopt, {}, failure);
  } else {
    callback(response->body, info, nullptr);
  }
}

void refuse(const NetworkCallback& callback, const ErrorPtr& error) {
  // On the pool, as every completion: the caller may hold a lock that its callback takes.
  Runtime::shared().pool().postOrRun([callback, error] { report(callback, std::nullopt, error); });
}

TransferPtr dispatch(HttpRequest request, const Dictionary& options,
                     const NetworkCallback& callback) {
  request.receiver = options[kBodyReceiver].objectAs<BodyReceiver>();
  if (const std::string* directory = options[kSpoolDirectory].text()) {
    request.spoolDirectory = *directory;
  }
  if (const auto value = options[kResponseLimits].objectAs<ResponseLimitsValue>()) {
    request.limits = value->limits;
  }
  const auto settings = options[kRequestSettings].objectAs<RequestSettings>();
  HttpCompletion completion = [callback](const std::optional<HttpResponse>& response,
                                         const ErrorPtr& error) {
    report(callback, response, error);
  };
  if (settings == nullptr) {
    return sendGuarded(*VRONetworkUtility::transport(), std::move(request), {},
                       std::move(completion));
  }
  if (const auto value = options[kRepeat].objectAs<RepeatValue>()) request.repeat = value->repeat;
  auto transport = settings->transport;
  if (transport == nullptr) transport = VRONetworkUtility::transport();
  return sendAttempts(transport, std::move(request), settings, std::move(completion));
}

Result<HttpRequest> encodeWithBody(HttpMethod method, const std::string& url,
                                   const Dictionary& queryParams, const Dictionary& headers,
                                   RequestType type, const Value& body) {
  HttpRequest request = encodeRequest(method, url, queryParams, headers);
  if (auto encoded = encodeBody(request, type, body); !encoded) return encoded.error();
  return request;
}

/// Sends what `encode` makes. Whatever is thrown on the way is the request's failure.
template <typename Encode>
TransferPtr send(const Encode& encode, const Dictionary& options, const NetworkCallback& callback) {
  // Made with the first request, while there is memory for it.
  static_cast<void>(outOfMemory());
  try {
    Result<HttpRequest> request = encode();
    if (request) return dispatch(std::move(request).value(), options, callback);
    refuse(callback, request.error());
  } catch (const std::exception& failure) {
    refuse(callback, makeTransportError(HttpTransportError::kNoResources, failure.what()));
  }
  return nullptr;
}

}  // namespace

std::optional<std::string> HttpResponseInfo::headerField(std::string_view name) const {
  for (const auto& field : headerFields_) {
    if (equalIgnoringCase(field.key, name)) return field.value.textValue();
  }
  return std::nullopt;
}

std::string HttpResponseInfo::description() const {
  return fmt::format("HTTP status {}, headers {}", statusCode_, Value(headerFields_).description());
}

TransferPtr VRONetworkUtility::GET(const std::string& url, const Dictionary& queryParams,
                                   const Dictionary& headers, const Dictionary& options,
                                   const NetworkCallback& callback) {
  const auto encode = [&]() -> Result<HttpRequest> {
    return encodeRequest(HttpMethod::kGet, url, queryParams, headers);
  };
  return send(encode, options, callback);
}

TransferPtr VRONetworkUtility::POST(const std::string& url, const Dictionary& queryParams,
                                    const Dictionary& headers, RequestType requestType,
                                    const Value& body, const Dictionary& options,
                                    const NetworkCallback& callback) {
  const auto encode = [&] {
    return encodeWithBody(HttpMethod::kPost, url, queryParams, headers, requestType, body);
  };
  return send(encode, options, callback);
}

TransferPtr VRONetworkUtility::PUT(const std::string& url, const Dictionary& queryParams,
                                   const Dictionary& headers, RequestType requestType,
                                   const Value& body, const Dictionary& options,
                                   const NetworkCallback& callback) {
  const auto encode = [&] {
    return encodeWithBody(HttpMethod::kPut, url, queryParams, headers, requestType, body);
  };
  return send(encode, options, callback);
}

TransferPtr VRONetworkUtility::DELETE(const std::string& url, const Dictionary& queryParams,
                                      const Dictionary& headers, const Dictionary& options,
                                      const NetworkCallback& callback) {
  const auto encode = [&]() -> Result<HttpRequest> {
    return encodeRequest(HttpMethod::kDelete, url, queryParams, headers);
  };
  return send(encode, options, callback);
}

std::shared_ptr<HttpTransport> VRONetworkUtility::transport() {
  return Transports::shared().current();
}

void VRONetworkUtility::setTransport(std::shared_ptr<HttpTransport> transport) {
  const auto before = Transports::shared().install(std::move(transport));
}

std::shared_ptr<RequestObserver> VRONetworkUtility::observer() {
  return Transports::shared().observer();
}

void VRONetworkUtility::setObserver(std::shared_ptr<RequestObserver> observer) {
  const auto before = Transports::shared().observeBy(std::move(observer));
}

bool VRONetworkUtility::configure(const NetworkConfiguration& configuration) {
  return Transports::shared().configure(configuration);
}

}  // namespace varo::platform
