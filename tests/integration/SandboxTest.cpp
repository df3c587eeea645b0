#include "tests/support/SandboxFixture.h"

#include <boost/asio/ip/tcp.hpp>

#include <atomic>
#include <chrono>
#include <thread>

namespace varo::sandbox {
namespace {

namespace json = boost::json;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using testing::StartsWith;

/// Sends `text` as it is and returns all that comes back until the server closes.
std::string rawExchange(const std::string& origin, const std::string& text) {
  boost::asio::ip::tcp::iostream stream("127.0.0.1", origin.substr(origin.rfind(':') + 1));
  EXPECT_TRUE(stream << text << std::flush);
  boost::system::error_code ignored;
  stream.socket().shutdown(boost::asio::socket_base::shutdown_send, ignored);
  return {std::istreambuf_iterator<char>(stream), {}};
}

TEST_F(SandboxTest, WrongChunksAreRefusedAndTheUploadGoesOn) {
  constexpr std::size_t kChunk = 1000;
  const std::string bytes = sampleBytes(2 * kChunk + 500);
  const Upload upload = create({{"file_name", "a"}, {"file_size", bytes.size()}});
  const std::string path = split(upload.url).path;
  auto http = client();
  const auto send = [&](const std::string& sequence, const std::string& piece) {
    return opstatus(http.Put(path + "?chunk_sequence=" + sequence, piece, kOctets));
  };
  EXPECT_EQ(opstatus(commit(upload.id)), 8005);
  EXPECT_EQ(send("2", "x"), 8006);
  EXPECT_EQ(send("0", "x"), 8006);
  EXPECT_EQ(send("1x", "x"), 8002);
  EXPECT_EQ(send("1", "an earlier attempt"), 0);
  EXPECT_EQ(send("1", bytes.substr(0, kChunk)), 0);
  EXPECT_EQ(send("3", "x"), 8006);
  EXPECT_EQ(send("2", ""), 8006);
  EXPECT_EQ(send("2", std::string(2 * kChunk + 1, 'x')), 8006) << "more than everything";
  EXPECT_EQ(send("1", bytes.substr(0, kChunk)), 0);
  EXPECT_EQ(send("2", bytes.substr(kChunk, kChunk)), 0);
  EXPECT_EQ(send("2", bytes.substr(kChunk, kChunk)), 0) << "the answer got lost";
  EXPECT_EQ(send("3", std::string(kChunk + 1, 'x')), 8006) << "more than a chunk, less than all";
  EXPECT_EQ(opstatus(commit(upload.id)), 8007);
  EXPECT_EQ(send("3", bytes), 0) << "everything once more";
  EXPECT_EQ(send("4", "x"), 8006) << "the short one was the last";
  EXPECT_EQ(opstatus(http.Post(path, "x", kOctets)), 8013);
  EXPECT_EQ(opstatus(http.Put(path, httplib::MultipartFormDataItems{{"data", "x", "", ""}})), 8013);
  EXPECT_EQ(opstatus(commit(upload.id)), 0);
  EXPECT_EQ(send("3", bytes.substr(2 * kChunk)), 8005);
  EXPECT_EQ(http.Get(bytesPath(upload.id))->body, bytes);
}

TEST_F(SandboxTest, MetadataIsFoundAndChangedButCannotClaimWhatIsTheServices) {
  const std::string evil = "x' OR '1'='1";
  const std::string id =
      storedFile("abc", {{"file_name", evil}, {"type", "png"}, {"n", 5}, {"file_id", "mine"}});
  storedFile("", {{"file_name", "b"}, {"type", "png"}});
  EXPECT_NE(id, "mine");
  EXPECT_EQ(list("n eq 5 and type eq 'png'").size(), 1u);
  EXPECT_EQ(list("file_name eq '" + evil + "'").size(), 1u);

  const json::object change{{"file_id", id}, {"type", "gif"}, {"n", nullptr}, {"entity_tag", "x"}};
  EXPECT_EQ(opstatus(client().Put(files_, json::serialize(change), kJson)), 0);
  restart({});
  EXPECT_EQ(list().size(), 2u) << "records outlive the server";
  const json::array changed = list("type eq 'gif'");
  ASSERT_EQ(changed.size(), 1u);
  EXPECT_EQ(changed[0].at("file_name"), json::value(evil));
  EXPECT_NE(changed[0].at("entity_tag"), "x");
  EXPECT_FALSE(changed[0].as_object().contains("n"));
}

TEST_F(SandboxTest, CommitsAndRangesWorkWithTheServiceAndTheStore) {
  const std::string bytes = sampleBytes(100);
  for (const char* domain : {"service", "store"}) {
    const Upload upload = create({{"file_name", "r"}, {"sandbox_template", {{"domain", domain}}}});
    const auto sent = sendBytes(upload, bytes);
    ASSERT_TRUE(sent);
    EXPECT_TRUE(list("file_id eq '" + upload.id + "'").empty());
    if (domain == std::string("store")) {
      EXPECT_EQ(opstatus(commit(upload.id)), 8008);
      EXPECT_EQ(opstatus(commit(upload.id, {{"ETag", "\"other\""}})), 8008);
    }
    const json::object tag{{"etag", sent->get_header_value("ETag")}};
    EXPECT_EQ(opstatus(commit(upload.id, tag)), 0);
    EXPECT_EQ(opstatus(commit(upload.id, tag)), 8005);
    EXPECT_EQ(list("file_id eq '" + upload.id + "'").size(), 1u);
    const Address address = split(upload.url + "?type=bytes");
    httplib::Client http(address.origin);
    const auto part = http.Get(address.path, {{"Range", "bytes=10-19"}});
    EXPECT_EQ(part->status, 206);
    EXPECT_EQ(part->body, bytes.substr(10, 10));
    EXPECT_EQ(part->get_header_value("Content-Range"), "bytes 10-19/100");
    const httplib::Headers old{{"Range", "bytes=0-1"}, {"If-Range", "\"old\""}};
    EXPECT_EQ(http.Get(address.path, old)->status, 200);
  }
}

TEST_F(SandboxTest, TokenIsComparedAsItIsAndNoticedByTheStore) {
  SandboxOptions options;
  options.requiredToken = "s3cret%41";
  restart(options);
  EXPECT_EQ(client().Get(files_, {{"X-Pelmar-Authorization", "s3cretA"}})->status, 401);
  EXPECT_EQ(client().Get(files_, {{"x-pelmar-authorization", "s3cret%41"}})->status, 200);
  EXPECT_EQ(store().Put("/objects/a", "x", kOctets)->status, 200);
  EXPECT_EQ(server_->storeStats().tokenHeaders, 0u);
  EXPECT_EQ(store().Get("/objects/a", {{"X-PELMAR-Authorization", "oops"}})->body, "x");
  EXPECT_EQ(server_->storeStats().tokenHeaders, 1u);
}

TEST_F(SandboxTest, SecurityKeyGuardsTheBytes) {
  const Upload upload = create({{"file_name", "k"}, {"security_key", "k 1"}});
  const std::string path = split(upload.url).path + "?chunk_sequence=1";
  EXPECT_EQ(opstatus(client().Put(path, "abc", kOctets)), 8014);
  EXPECT_EQ(opstatus(client().Put(path + "&security_key=k%201", "abc", kOctets)), 0);
  EXPECT_EQ(opstatus(commit(upload.id)), 0);
  EXPECT_EQ(client().Get(bytesPath(upload.id))->status, 403);
  EXPECT_EQ(client().Get(bytesPath(upload.id) + "&security_key=k%201")->body, "abc");
}

TEST_F(SandboxTest, FaultsHitWhatTheyMatchAndNothingElse) {
  auto http = client();
  const auto inject = [&](const std::string& rule) {
    http.Delete("/control/faults");
    EXPECT_EQ(opstatus(http.Post("/control/faults", rule, kJson)), 0) << rule;
  };
  inject(R"({"match":{"method":"GET","path":"objects/File","skip":1,"count":2},
             "action":{"status":503,"body":"down","headers":{"Retry-After":"1"}}})");
  std::vector<int> statuses;
  for (int i = 0; i < 4; ++i) statuses.push_back(http.Get(files_)->status);
  EXPECT_THAT(statuses, testing::ElementsAre(200, 503, 503, 200));

  inject(R"({"action":{"opstatus":8009}})");
  EXPECT_EQ(opstatus(http.Get(files_)), 8009);

  inject(R"({"match":{"listener":"store"},"action":{"status":500}})");
  EXPECT_EQ(http.Get(files_)->status, 200);
  EXPECT_EQ(store().Get("/objects/x")->status, 500);

  for (const char* bad : {"[]", R"({"rules":[1]})", R"({"action":{"latency":1}})",
                          R"({"action":{"status":1}})", R"({"action":{"stallMs":-2}})",
                          R"({"match":{"skip":-1},"action":{}})", R"({"match":{}})"}) {
    EXPECT_EQ(http.Post("/control/faults", bad, kJson)->status, 400) << bad;
  }
}

TEST_F(SandboxTest, StopEndsRequestsThatWouldTakeForEver) {
  server_->addFault({{.listener = "service"}, {.stallAfter = 1, .stallFor = milliseconds(-1)}});
  server_->addFault({{.path = "/endless"}, {.endlessHeaders = true}});
  std::vector<std::thread> clients;
  std::atomic<int> ended = 0;
  for (int i = 0; i < 20; ++i) {
    clients.emplace_back([this, i, &ended] {
      if (i % 2 == 0) {
        EXPECT_FALSE((i % 4 == 0 ? client() : store()).Get(i % 4 == 0 ? files_ : "/endless"));
      } else {
        const auto trickle = [](std::size_t, std::size_t, httplib::DataSink& sink) {
          std::this_thread::sleep_for(milliseconds(10));
          return sink.write("x", 1);
        };
        EXPECT_FALSE(store().Put("/objects/s" + std::to_string(i), 1'000'000, trickle, kOctets));
      }
      ++ended;
    });
  }
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_EQ(ended, 0);
  const auto start = steady_clock::now();
  server_->stop();
  EXPECT_LT(steady_clock::now() - start, milliseconds(3000));
  for (std::thread& thread : clients) thread.join();
  EXPECT_TRUE(std::filesystem::is_empty(directory_ + "/objects")) << "nothing half-written stays";
}

// Also with what two readers could read differently, such as where a body ends.
TEST_F(SandboxTest, HostileRequestsAreAnsweredAndHarmNobody) {
  const std::string id = storedFile("safe");
  const std::string put = "PUT " + files_ + " HTTP/1.1\r\n";
  const struct {
    std::string request, status;
  } kCases[] = {
      {"GET " + bytesPath("..%2f..%2frecords.sqlite") + " HTTP/1.1\r\n\r\n", "404"},
      {"GET / HTTP/1.1\r\nX: " + std::string(70'000, 'a') + "\r\n\r\n", "431"},
      {"GET / HTTP/2\r\n\r\n", "505"},
      {"GET  / HTTP/1.1\r\n\r\n", "400"},
      {"G\x01T / HTTP/1.1\r\n\r\n", "400"},
      {"GET /" + std::string(5000, 'a') + " HTTP/1.1\r\n\r\n", "414"},
      {"GET / HTTP/1.1\r\nA: b\r\n folded\r\n\r\n", "400"},
      {"GET / HTTP/1.1\r\nA : b\r\n\r\n", "400"},
      {"GET / HTTP/1.1\r\nA: b\nC: d\r\n\r\n", "400"},
      {put + "Content-Length: 99999999999999999999\r\n\r\n", "400"},
      {put + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", "400"},
      {put + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n", "400"},
      {put + "Transfer-Encoding: gzip\r\n\r\n", "501"},
      {put + "Content-Encoding: gzip\r\n\r\n", "415"},
      {put + "Content-Length: 99999999999999\r\n\r\n", "413"},
      {put + "Transfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n", "400"},
      {put + "Content-Length: 50\r\n\r\nshort", "400"},
      {"\x16\x03\x01\x02\xfc\x03\x03\r\n\r\n", "400"},
      {"\r\n\r\nGET /control/nothing HTTP/1.1\r\n\r\n", "404"},
  };
  for (const auto& c : kCases) {
    EXPECT_THAT(rawExchange(base_.origin, c.request), StartsWith("HTTP/1.1 " + c.status))
        << c.request.substr(0, 100);
  }
  EXPECT_EQ(list().size(), 1u);
  EXPECT_EQ(client().Get(bytesPath(id))->body, "safe");
}

TEST_F(SandboxTest, HostileBodiesAreAnsweredWithTheirFault) {
  const std::string deep(100'000, '[');
  const struct {
    std::string body;
    int opstatus;
  } kCases[] = {{"", 8001},
                {"[]", 8001},
                {deep, 8001},
                {R"({"file_name":"\ud800"})", 8001},
                {R"({"file_name":5})", 8002},
                {std::string(5'000'000, ' '), 8010}};
  for (const auto& c : kCases) {
    EXPECT_EQ(opstatus(client().Post(files_, c.body, kJson)), c.opstatus) << c.body.substr(0, 40);
  }
  const Upload upload =
      create({{"file_name", "m"},
              {"sandbox_template", {{"uploadMode", "multipart"}, {"method", "post"}}}});
  EXPECT_EQ(opstatus(client().Post(split(upload.url).path, "--b\r\ngarbage",
                                   "multipart/form-data; boundary=b")),
            8010);
  EXPECT_EQ(opstatus(client().Post(split(upload.url).path)), 8013) << "no body at all";
}

TEST_F(SandboxTest, TenThousandRequestsOverHundredsOfConnections) {
  storedFile("x");
  constexpr int kConnections = 300;
  constexpr int kRequestsEach = 34;
  std::atomic<int> good = 0;
  std::vector<std::thread> clients;
  const auto start = steady_clock::now();
  for (int i = 0; i < kConnections; ++i) {
    clients.emplace_back([this, &good] {
      auto http = client();
      for (int n = 0; n < kRequestsEach; ++n) {
        const auto answer = http.Get(files_);
        if (answer && answer->status == 200) ++good;
      }
    });
  }
  for (std::thread& thread : clients) thread.join();
  EXPECT_EQ(good, kConnections * kRequestsEach);
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(60));
  EXPECT_LE(server_->requests().size(), 500u);
  EXPECT_GE(server_->serviceStats().requests, 10'000u);
}

TEST_F(SandboxTest, IdleConnectionsMakeRoomWhenThereAreTooMany) {
  SandboxOptions options;
  options.connectionThreads = 2;
  restart(options);
  std::vector<httplib::Client> clients;
  for (int i = 0; i < 6; ++i) clients.push_back(client());
  for (httplib::Client& http : clients) {
    const auto answer = http.Get(files_);
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, 200);
  }
}

}  // namespace
}  // namespace varo::sandbox
