#pragma once

#include "Sandbox/Http/HttpLimits.h"
#include "Sandbox/Http/HttpResponse.h"
#include "Sandbox/Http/RequestBody.h"
#include "Sandbox/Http/StopSignal.h"
#include "Sandbox/Http/TimedSocket.h"

#include <boost/beast/core/flat_buffer.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <span>
#include <string_view>

namespace varo::sandbox {

/// Called on connection threads, many at once. What it leaves unread of the body is discarded.
using HttpHandler = std::function<HttpResponse(HttpRequest& request, RequestBody& body)>;

/// Serves the requests of one connection, one after the other. All of it runs on one thread.
class HttpConnection {
 public:
  /// What outlives the connection.
  struct Server {
    const HttpLimits& limits;
    StopSignal& stopSignal;
    const HttpHandler& handler;
  };

  HttpConnection(TimedSocket::Socket socket, const Server& server);

  /// Returns when the connection has ended, by whichever side. `mayIdle` is asked a few times a
  /// second while there is no request, and ends the connection.
  void serve(const std::function<bool()>& mayIdle);

 private:
  enum class Arrival { kHead, kTooLarge, kClosed };
  class Body;

  [[nodiscard]] Arrival awaitHead(const std::function<bool()>& mayIdle);
  [[nodiscard]] bool awaitInput(std::chrono::steady_clock::time_point deadline,
                                const std::function<bool()>& mayIdle);
  [[nodiscard]] std::string_view pending() const;
  /// The next three return whether the connection can go on.
  [[nodiscard]] bool serveRequest();
  enum class After { kKeep, kClose };
  [[nodiscard]] bool send(const HttpResponse& response, std::string_view method, After after);
  [[nodiscard]] bool sendBody(const HttpResponse& response);
  [[nodiscard]] bool write(std::string_view bytes);
  void sendEndlessHeaders();
  void closeGently();
  /// Where the bytes of bodies pass, in and out; gone between two requests.
  [[nodiscard]] std::span<char> block();

  const Server server_;
  TimedSocket socket_;
  boost::beast::flat_buffer buffer_;  // what arrived and was not looked at yet
  std::size_t headLength_ = 0;        // of the head at its beginning, once it is complete
  std::unique_ptr<char[]> block_;
};

}  // namespace varo::sandbox
