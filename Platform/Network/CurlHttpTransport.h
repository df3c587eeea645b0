#pragma once

#include "Platform/Foundation/ThreadPool.h"
#include "Platform/Network/HttpCookieStore.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/NetworkConfiguration.h"

#include <memory>

namespace varo::platform {

class CurlEngine;

/// The default transport: HTTP/1.1 and HTTP/2 over libcurl.
///
/// One thread drives all transfers over one pool of connections, which are kept open and reused. It
/// starts with the first request and blocks on nothing but its sockets and short disk writes.
/// Request bodies are read piece by piece as they are sent; response bodies above 1 MiB go to a
/// nameless file, so that memory does not grow with the size of a body. Bodies arrive as the
/// server sent them: nothing is decompressed.
///
/// Certificates are always verified, no proxy is used, no keys of connections are written down, and
/// no environment variable changes any of it.
///
/// Of the request:
/// - Content-Length, Transfer-Encoding and Expect are dropped from its headers: the transport says
///   them itself.
/// - A Host is sent as it stands, since it may be signed. It decides nothing about whom the
///   transport connects to and whose certificate it accepts.
/// - POST and PUT without a body send one of zero bytes.
///
/// A transfer that is cancelled takes in no byte more than libcurl has in its hands at that moment
/// (16 KiB), and its connection is closed as soon as the I/O thread wakes up. Of a 64 MiB range
/// from a slow server, less than 256 KiB leave that server after the cancel.
///
/// A kept connection that breaks before the first byte of a response is replaced and the request is
/// sent again, but not a POST. A POST uses no connection that has been idle for more than 3 s.
///
/// Errors have the domain `kHttpTransportErrorDomain`, see HttpTransportError.h.
class CurlHttpTransport final : public HttpTransport {
 public:
  /// Completions run on `pool`. Once that is shut down they run inside `shutdown` or `send`, so
  /// that none is lost. Both references must outlive the transport.
  CurlHttpTransport(const NetworkConfiguration& configuration, ThreadPool& pool,
                    HttpCookieStore& cookies = HttpCookieStore::sharedStore());
  /// As `shutdown`.
  ~CurlHttpTransport() override;
  CurlHttpTransport(const CurlHttpTransport&) = delete;
  CurlHttpTransport& operator=(const CurlHttpTransport&) = delete;

  std::shared_ptr<HttpTransfer> send(HttpRequest request, HttpCompletion completion) override;

  /// Joins the I/O thread: on return all completions are on the pool. May be called from a
  /// completion.
  void shutdown() override;

 private:
  const std::shared_ptr<CurlEngine> engine_;
};

}  // namespace varo::platform
