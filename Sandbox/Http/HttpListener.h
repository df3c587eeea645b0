#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Sandbox/Http/HttpConnection.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>

#include <cstdint>
#include <list>
#include <optional>
#include <string>
#include <thread>

namespace varo::sandbox {

/// Accepts connections on one port and serves each on a thread of its own.
class HttpListener {
 public:
  HttpListener(const HttpLimits& limits, StopSignal& stopSignal, HttpHandler handler);
  /// Stops.
  ~HttpListener();
  HttpListener(const HttpListener&) = delete;
  HttpListener& operator=(const HttpListener&) = delete;

  /// Binds and begins to accept; port 0 takes a free one. Returns what went wrong, if anything.
  [[nodiscard]] std::optional<std::string> start(const std::string& address, std::uint16_t port);
  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// Raises the stop signal, closes all connections, whatever they are doing, and returns when no
  /// thread is left.
  void stop();

 private:
  using Tcp = boost::asio::ip::tcp;
  struct Served {
    int socket = -1;  // the thread's; open as long as the entry is in `served_`
    std::thread thread;
  };

  void acceptAll();
  /// None where there was none, or when the listener stops.
  [[nodiscard]] std::optional<Tcp::socket> acceptNext();
  /// False when the listener stops.
  [[nodiscard]] bool awaitFreeThread();
  void startThread(Tcp::socket socket);
  void serve(Tcp::socket socket, std::list<Served>::iterator self);
  [[nodiscard]] bool mayIdle();
  void joinEnded();

  const HttpLimits limits_;
  StopSignal& stopSignal_;
  const HttpHandler handler_;
  // The acceptor's thread runs it for each connection; the sockets are used synchronously.
  boost::asio::io_context context_;
  Tcp::acceptor acceptor_{context_};
  std::thread acceptorThread_;
  std::uint16_t port_ = 0;

  platform::Mutex mutex_;
  platform::ConditionVariable changed_;
  std::list<Served> served_ VARO_GUARDED_BY(mutex_);
  std::list<Served> ended_ VARO_GUARDED_BY(mutex_);  // threads that are to be joined
  bool isCrowded_ VARO_GUARDED_BY(mutex_) = false;   // a connection waits for a thread
};

}  // namespace varo::sandbox
