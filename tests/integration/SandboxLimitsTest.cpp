#include "Sandbox/Http/TimedSocket.h"
#include "tests/support/SandboxFixture.h"

#include <boost/asio/io_context.hpp>

// The sandbox's HTTP on the wire: framing, and what a listener takes from its clients. No test
// waits longer than a time-out that it has set itself.

namespace varo::sandbox {
namespace {

using std::chrono::milliseconds;
using test::RawConnection;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr milliseconds kSoon{50};

std::string getOf(std::size_t headBytes) {
  const std::string line = "GET /x HTTP/1.1\r\nA: ";
  return line + std::string(headBytes - line.size() - 4, 'a') + "\r\n\r\n";
}

std::string putOf(const std::string& framing, const std::string& body) {
  return "PUT /control/blobs/HR/e?id=1 HTTP/1.1\r\n" + framing + "\r\n\r\n" + body;
}

class SandboxLimitsTest : public SandboxTest {
 protected:
  void limit(const std::function<void(HttpLimits&)>& change) {
    SandboxOptions options;
    change(options.http);
    restart(std::move(options));
  }
  /// All that the server says to `request` until it closes, or has said `marker`.
  std::string exchange(const std::string& request, std::string_view marker = {}) {
    RawConnection connection(base_.origin);
    EXPECT_TRUE(connection.send(request));
    return connection.receive(marker);
  }
  void addFault(const FaultAction& action) {
    server_->addFault({.match = {.path = "/fault", .count = 1}, .action = action});
  }
};

TEST_F(SandboxLimitsTest, SizesAreAcceptedUpToTheLimitAndRefusedBeyond) {
  const struct {
    std::function<void(HttpLimits&)> change;
    std::string accepted, refused, status;
  } kCases[] = {
      {[](HttpLimits& limits) { limits.headBytes = 300; }, getOf(300), getOf(301), "431"},
      {[](HttpLimits& limits) { limits.headBytes = 300; }, getOf(300), getOf(90'000), "431"},
      {[](HttpLimits& limits) { limits.headerLines = 2; },
       "GET /x HTTP/1.1\r\nA: 1\r\nA: 2\r\n\r\n", "GET /x HTTP/1.1\r\nA: 1\r\nA: 2\r\nB: 3\r\n\r\n",
       "431"},
      {[](HttpLimits& limits) { limits.pathBytes = 4; }, "GET /abc?defg HTTP/1.1\r\n\r\n",
       "GET /%61c HTTP/1.1\r\n\r\n", "414"},
      {[](HttpLimits& limits) { limits.bodyBytes = 5; }, putOf("Content-Length: 5", "12345"),
       putOf("Content-Length: 6", "123456"), "413"},
      {[](HttpLimits& limits) { limits.bodyBytes = 5; },
       putOf("Transfer-Encoding: chunked", "2\r\n12\r\n3\r\n345\r\n0\r\n\r\n"),
       putOf("Transfer-Encoding: chunked", "2\r\n12\r\n4\r\n3456\r\n0\r\n\r\n"), "400"},
  };
  for (const auto& c : kCases) {
    limit(c.change);
    // Both on one connection, which only the refusal closes.
    const std::string answers = exchange(c.accepted + c.refused);
    EXPECT_THAT(answers, StartsWith(c.accepted[0] == 'P' ? "HTTP/1.1 200" : "HTTP/1.1 404"));
    EXPECT_THAT(answers, HasSubstr("HTTP/1.1 " + c.status)) << c.refused.substr(0, 60);
    EXPECT_THAT(answers, HasSubstr("Connection: close"));
  }
}

TEST_F(SandboxLimitsTest, WhoeverSaysNothingOrTooLittleIsGivenUp) {
  const auto idle = [](HttpLimits& limits) { limits.idleTimeout = kSoon; };
  const auto head = [](HttpLimits& limits) { limits.headTimeout = kSoon; };
  const auto body = [](HttpLimits& limits) { limits.transferTimeout = kSoon; };
  const struct {
    std::function<void(HttpLimits&)> change;
    std::string begin;
    char more;  ///< Comes on, byte by byte, until the server closes; 0: nothing does.
    std::string answer;
  } kCases[] = {
      {idle, "", 0, ""},
      {idle, "\r\n", 0, ""},
      {idle, "GET /x HTTP/1.1\r\n\r\n", 0, "HTTP/1.1 404"},
      {head, "GET /x HT", 0, ""},
      {head, "GET /x", 'x', ""},
      {body, putOf("Content-Length: 9", "1234"), 0, "HTTP/1.1 400"},
      {body, putOf("Content-Length: 60000", ""), 'x', "HTTP/1.1 400"},
      {body, putOf("Transfer-Encoding: chunked", "3\r\n12"), 0, "HTTP/1.1 400"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.begin.substr(0, 80) + c.more);
    limit(c.change);
    RawConnection connection(base_.origin);
    EXPECT_TRUE(connection.send(c.begin));
    // Each byte well within the time-out, all of them far beyond it.
    int sent = 0;
    while (c.more != 0 && sent < 10'000 && !connection.hasInput(5)) {
      if (!connection.send({&c.more, 1})) break;
      ++sent;
    }
    EXPECT_LT(sent, 10'000);
    EXPECT_THAT(connection.receive(), StartsWith(c.answer));
  }
}

TEST_F(SandboxLimitsTest, TheTimeForATransferBeginsAnewWithEnoughBytes) {
  boost::asio::io_context context;
  boost::asio::ip::tcp::acceptor acceptor(context, {boost::asio::ip::address_v4::loopback(), 0});
  RawConnection peer("http://127.0.0.1:" + std::to_string(acceptor.local_endpoint().port()));
  TimedSocket socket(acceptor.accept());
  char byte = 0;
  const auto read = [&] {
    TimedSocket::ErrorCode error;
    socket.read_some(boost::asio::buffer(&byte, 1), error);
    return error;
  };
  socket.allowWaits(kSoon, 2);
  EXPECT_EQ(read(), boost::asio::error::timed_out);
  EXPECT_TRUE(peer.send("12"));
  ASSERT_TRUE(socket.awaitInput(milliseconds(20'000)));
  EXPECT_FALSE(read());
  ASSERT_TRUE(socket.awaitInput(milliseconds(20'000)));
  EXPECT_FALSE(read());
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_EQ(read(), boost::asio::error::timed_out);
  EXPECT_GE(std::chrono::steady_clock::now() - begin, kSoon);
}

// With one thread a second connection is served when the first one has ended.
TEST_F(SandboxLimitsTest, ConnectionsBeyondTheLimitWaitAndIdleOnesMakeRoom) {
  const std::string nothing = "GET /x HTTP/1.1\r\n\r\n";
  limit([](HttpLimits& limits) { limits.connections = 1; });
  RawConnection first(base_.origin);
  EXPECT_TRUE(first.send(putOf("Content-Length: 5\r\nExpect: 100-continue", "")));
  EXPECT_EQ(first.receive("\r\n\r\n"), "HTTP/1.1 100 Continue\r\n\r\n");
  RawConnection second(base_.origin);
  EXPECT_TRUE(second.send(nothing));
  EXPECT_FALSE(second.hasInput(20)) << "the first one is in the middle of a request";
  EXPECT_TRUE(first.send("12345"));
  EXPECT_THAT(first.receive(), StartsWith("HTTP/1.1 200")) << "and then closes";
  EXPECT_THAT(second.receive("}"), StartsWith("HTTP/1.1 404"));
}

TEST_F(SandboxLimitsTest, AClientThatDoesNotReadIsGivenUp) {
  limit([](HttpLimits& limits) {
    limits.connections = 1;
    limits.transferTimeout = kSoon;
  });
  constexpr std::uint64_t kSize = std::uint64_t{1} << 30;
  const auto error = server_->putBlob({"HR", "e", {{"id", "1"}}}, {.generated = {{kSize, 7}}});
  ASSERT_FALSE(error) << error->message;
  RawConnection reader(base_.origin, 4096);
  EXPECT_TRUE(reader.send("GET /services/blobs/HR/e/binary?id=1&type=bytes HTTP/1.1\r\n\r\n"));
  EXPECT_THAT(exchange("GET /x HTTP/1.1\r\n\r\n", "}"), StartsWith("HTTP/1.1 404"));
  EXPECT_LT(reader.receive().size(), kSize);
}

TEST_F(SandboxLimitsTest, RequestsAreFramedAsTheStandardSays) {
  const std::string last = "GET /x HTTP/1.1\r\nConnection: close\r\n\r\n";
  const std::string ok = "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 2\r\n";
  const FaultAction answer{.status = 200, .body = "ok"};
  const struct {
    std::string request;
    std::string answer;  ///< Up to the 404 of the request that follows, if that is served.
    bool goesOn;
  } kCases[] = {
      {"HEAD /fault HTTP/1.1\r\n\r\n", ok + "\r\n", true},
      {"GET /fault HTTP/1.0\r\n\r\n", ok + "Connection: close\r\n\r\nok", false},
      {"GET /fault HTTP/1.1\r\nConnection: x, close\r\n\r\n", ok + "Connection: close\r\n\r\nok",
       false},
      {"\r\nPUT /fault HTTP/1.1\r\nContent-Length: 3\r\n\r\nabc", ok + "\r\nok", true},
      {"PUT /fault HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3;a=b\r\nabc\r\n0\r\nT: u\r\n\r\n",
       ok + "\r\nok", true},
      {"PUT /fault HTTP/1.1\r\nContent-Length: 3\r\nExpect: 100-continue\r\n\r\nabc",
       "HTTP/1.1 100 Continue\r\n\r\n" + ok + "\r\nok", true},
      {"PUT /fault HTTP/1.1\r\nContent-Length: 0\r\nExpect: 100-continue\r\n\r\n", ok + "\r\nok",
       true},
  };
  for (const auto& c : kCases) {
    addFault(answer);
    const std::string answers = exchange(c.request + last);
    EXPECT_EQ(answers.substr(0, answers.find("HTTP/1.1 404")), c.answer) << c.request;
    EXPECT_EQ(answers.find("HTTP/1.1 404") != std::string::npos, c.goesOn) << c.request;
  }
}

TEST_F(SandboxLimitsTest, FaultsReachTheWire) {
  const std::string ok = "HTTP/1.1 200 OK\r\n";
  const std::string type = "Content-Type: text/plain\r\n";
  const struct {
    FaultAction action;
    std::string answer;  ///< Up to the 404 of the request that follows, if that is served.
    bool goesOn;
  } kCases[] = {
      {{.status = 200, .body = "12345", .cutAfter = 0},
       ok + type + "Content-Length: 5\r\n\r\n",
       false},
      {{.status = 200, .body = "123", .stallAfter = 2, .stallFor = milliseconds(1)},
       ok + type + "Content-Length: 3\r\n\r\n123",
       true},
      {{.drop = true}, "", false},
      {{.noBody = true}, "HTTP/1.1 204 No Content\r\n\r\n", true},
      {{.status = 304, .noBody = true}, "HTTP/1.1 304 Not Modified\r\n\r\n", true},
      {{.status = 200, .body = "123", .headers = {{"Content-Length", "9"}}},
       ok + "Content-Length: 9\r\n" + type + "\r\n123",
       true},
      {{.status = 200, .body = "123", .headers = {{"A", "b\r\nC: d"}}},
       ok + type + "Content-Length: 3\r\n\r\n123",
       true},
      {{.location = "/y"}, "HTTP/1.1 302 Found\r\nLocation: /y\r\nContent-Length: 0\r\n\r\n", true},
  };
  for (const auto& c : kCases) {
    addFault(c.action);
    const std::string answers =
        exchange("GET /fault HTTP/1.1\r\n\r\nGET /x HTTP/1.1\r\nConnection: close\r\n\r\n");
    EXPECT_EQ(answers.substr(0, answers.find("HTTP/1.1 404")), c.answer);
    EXPECT_EQ(answers.find("HTTP/1.1 404") != std::string::npos, c.goesOn) << c.answer;
  }
  addFault({.endlessHeaders = true});
  EXPECT_THAT(exchange("GET /fault HTTP/1.1\r\n\r\n", "X-Endless-100:"),
              Not(HasSubstr("\r\n\r\n")));
}

}  // namespace
}  // namespace varo::sandbox
