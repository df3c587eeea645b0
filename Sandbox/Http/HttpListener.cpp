#include "Sandbox/Http/HttpListener.h"

#include <fmt/format.h>

#include <exception>
#include <fcntl.h>
#include <sys/socket.h>
#include <system_error>
#include <utility>

namespace varo::sandbox {
namespace {

// A burst of clients would wait a second for its retries behind a short queue.
constexpr int kBacklog = 1024;
constexpr std::chrono::milliseconds kPauseAfterFailure{10};

/// A program that the process starts would keep the connection open.
void closeOnExec(int socket) { static_cast<void>(::fcntl(socket, F_SETFD, FD_CLOEXEC)); }

}  // namespace

HttpListener::HttpListener(const HttpLimits& limits, StopSignal& stopSignal, HttpHandler handler)
    : limits_(limits), stopSignal_(stopSignal), handler_(std::move(handler)) {}

HttpListener::~HttpListener() { stop(); }

std::optional<std::string> HttpListener::start(const std::string& address, std::uint16_t port) {
  boost::system::error_code error;
  const auto endpoints =
      Tcp::resolver(context_).resolve(address, std::to_string(port), Tcp::resolver::passive, error);
  const auto open = [this, &error](const Tcp::endpoint& endpoint) {
    acceptor_.close(error);
    acceptor_.open(endpoint.protocol(), error);
    if (!error) closeOnExec(acceptor_.native_handle());
    // Without it a sandbox that is started again finds its port taken by the last run's
    // connections, which the system keeps for a minute or so.
    if (!error) acceptor_.set_option(Tcp::acceptor::reuse_address(true), error);
    if (!error) acceptor_.bind(endpoint, error);
    if (!error) acceptor_.listen(kBacklog, error);
    return !error;
  };
  bool isOpen = false;
  // A name such as "localhost" may have an IPv6 address first, on a machine without IPv6.
  for (auto entry = endpoints.begin(); !isOpen && entry != endpoints.end(); ++entry) {
    isOpen = open(entry->endpoint());
  }
  if (!isOpen) return fmt::format("cannot listen on {}:{}: {}", address, port, error.message());
  port_ = acceptor_.local_endpoint().port();  // before a handler can ask for it
  acceptorThread_ = std::thread([this] { acceptAll(); });
  return std::nullopt;
}

void HttpListener::stop() {
  // First of all, so that whoever is woken below finds it raised and does not wait again.
  stopSignal_.raise();
  if (!acceptorThread_.joinable()) return;
  context_.stop();
  {
    const platform::MutexLock lock(mutex_);
    // Under the lock: the acceptor either sees the signal before it waits, or waits and hears this.
    changed_.notifyAll();
  }
  // Before the connections are closed: afterwards no new one can come.
  acceptorThread_.join();
  boost::system::error_code ignored;
  acceptor_.close(ignored);
  {
    const platform::MutexLock lock(mutex_);
    // Wakes each thread from whatever it does with its socket. The thread closes the socket itself:
    // closed here, its number could be another file's by the time the thread uses it.
    for (const Served& one : served_) ::shutdown(one.socket, SHUT_RDWR);
    while (!served_.empty()) changed_.wait(mutex_);
  }
  // All have left `served_`, but their last steps, such as closing the socket, may still run.
  joinEnded();
}

void HttpListener::acceptAll() {
  while (!stopSignal_.raised()) {
    std::optional<Tcp::socket> socket = acceptNext();
    // Here, because an ended thread cannot join itself and holds its stack until somebody does.
    joinEnded();
    if (!socket) {
      // The client has left, or there are no descriptors until a connection ends.
      stopSignal_.waitFor(kPauseAfterFailure);
      continue;
    }
    closeOnExec(socket->native_handle());
    if (awaitFreeThread()) startThread(std::move(*socket));
  }
}

std::optional<HttpListener::Tcp::socket> HttpListener::acceptNext() {
  std::optional<Tcp::socket> next;
  // A blocking accept could not be ended in a way that all systems have.
  acceptor_.async_accept([&next](const boost::system::error_code& error, Tcp::socket socket) {
    if (!error) next.emplace(std::move(socket));
  });
  context_.restart();
  // `stop` raises the signal, then stops the context: one of the two is seen. The handler does not
  // run any more then.
  if (!stopSignal_.raised()) context_.run();
  return next;
}

bool HttpListener::awaitFreeThread() {
  const platform::MutexLock lock(mutex_);
  while (served_.size() >= limits_.connections && !stopSignal_.raised()) {
    // Idle connections see this within a moment and end, so the new client waits for one of them
    // and is not refused.
    isCrowded_ = true;
    changed_.wait(mutex_);
  }
  isCrowded_ = false;
  return !stopSignal_.raised();
}

void HttpListener::startThread(Tcp::socket socket) {
  // The thread needs the lock before it ends, so its entry is complete by then.
  const platform::MutexLock lock(mutex_);
  const auto self = served_.insert(served_.end(), Served{socket.native_handle(), {}});
  try {
    self->thread = std::thread(
        [this, self, socket = std::move(socket)]() mutable { serve(std::move(socket), self); });
  } catch (const std::system_error&) {
    // The system has no thread to give. The client sees the connection close.
    served_.erase(self);
  }
}

void HttpListener::serve(Tcp::socket socket, std::list<Served>::iterator self) {
  std::optional<HttpConnection> connection;
  try {
    connection.emplace(std::move(socket), HttpConnection::Server{limits_, stopSignal_, handler_});
    connection->serve([this] { return mayIdle(); });
  } catch (const std::exception&) {
    // No memory: the connection ends, which is all that its client can be told.
  }
  // Before the socket is closed: its number may be another's afterwards.
  const platform::MutexLock lock(mutex_);
  ended_.splice(ended_.end(), served_, self);
  changed_.notifyAll();
}

bool HttpListener::mayIdle() {
  const platform::MutexLock lock(mutex_);
  return !isCrowded_ && !stopSignal_.raised();
}

void HttpListener::joinEnded() {
  std::list<Served> ended;
  {
    const platform::MutexLock lock(mutex_);
    ended.swap(ended_);
  }
  // Outside the lock: a thread that ends needs the lock, and a join waits for it.
  for (Served& one : ended) one.thread.join();
}

}  // namespace varo::sandbox
