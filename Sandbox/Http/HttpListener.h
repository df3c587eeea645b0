#pragma once

#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/StopSignal.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace varo::sandbox {

/// Accepts connections on one port and passes each request to a handler. All knowledge of the HTTP
/// library ends here.
class HttpListener {
 public:
  /// Called on connection threads, many at once. What it leaves unread of the body is discarded.
  using Handler = std::function<HttpResponse(HttpRequest& request, RequestBody& body)>;
  struct Limits {
    std::size_t connectionThreads = 0;
    std::uint64_t bodyBytes = 0;
  };

  HttpListener(Limits limits, StopSignal& stopSignal, Handler handler);
  ~HttpListener();

  /// Binds and begins to accept; port 0 takes a free one. Returns what went wrong, if anything.
  [[nodiscard]] std::optional<std::string> start(const std::string& address, std::uint16_t port);
  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// Closes all connections, whatever they are doing, and returns when no thread is left. Raise the
  /// stop signal first, so that no handler waits.
  void stop();

 private:
  class Server;
  const Limits limits_;
  StopSignal& stopSignal_;
  const Handler handler_;
  std::unique_ptr<Server> server_;
  std::uint16_t port_ = 0;
};

}  // namespace varo::sandbox
