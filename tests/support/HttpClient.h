#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varo::test {

/// What a server answered. `status` is 0 where it did not.
struct HttpAnswer {
  int status = 0;
  std::vector<std::pair<std::string, std::string>> headers{};
  std::string body{};

  /// The first value under `name`, in any letter case; empty where there is none.
  [[nodiscard]] std::string header(std::string_view name) const;
};

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

/// Sends one request to `url` (http://, host, port, target) on a connection of its own.
[[nodiscard]] HttpAnswer httpRequest(const std::string& method, const std::string& url,
                                     const std::string& body = {}, const HttpHeaders& headers = {});

/// A connection that sends whatever a test wants, and shows what came back byte for byte.
class RawConnection {
 public:
  /// Connects to the host and port of `url`. A small `receiveBuffer` (bytes) makes the server wait
  /// for a client that does not read; 0: the system's choice.
  explicit RawConnection(const std::string& url, int receiveBuffer = 0);
  ~RawConnection();
  RawConnection(const RawConnection&) = delete;
  RawConnection& operator=(const RawConnection&) = delete;

  /// False where the server takes no more.
  bool send(std::string_view bytes);
  void endSending();
  /// All that comes until `marker` has, or until the server closes; 20 s at most.
  [[nodiscard]] std::string receive(std::string_view marker = {});
  /// Waits for something to read, or for the end.
  [[nodiscard]] bool hasInput(int milliseconds) const;

 private:
  int socket_ = -1;
};

}  // namespace varo::test
