#include "Platform/Network/NetworkTuning.h"
#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/Files.h"
#include "tests/support/TestCertificate.h"
#include "tests/support/TransportFixture.h"

#include <sys/stat.h>

namespace varo::test {
namespace {

using namespace platform;
using testing::HasSubstr;

/// Ends of transfers, sizes beyond memory, and TLS.
using CurlTransferLifeTest = TransportTest;

// ---- cancel and shutdown ----

TEST_F(CurlTransferLifeTest, CompletesWhereItWasAskedOnceThePoolIsShutDown) {
  ScriptedServer server([](const WireRequest&) { return WireReply().hold(); });
  auto [transfer, outcome] = start({HttpMethod::kGet, server.url("/"), {}, {}, {}});
  ASSERT_TRUE(eventually([&] { return server.connectionCount() == 1; }));
  pool_.shutdown();
  transport_->shutdown();
  EXPECT_EQ(outcome.get().errorCode(), codeOf(HttpTransportError::kShutDown));
  EXPECT_EQ(get(server.url("/")).errorCode(), codeOf(HttpTransportError::kShutDown));
  EXPECT_EQ(calls_, 2);
}

TEST_F(CurlTransferLifeTest, GivesUpInTheTimeOfTheRequestOrElseOfTheTransport) {
  // To it a TLS handshake is an HTTP request without an end.
  ScriptedServer server([](const WireRequest&) { return WireReply().hold(); });
  const std::string secure = "https://127.0.0.1:" + std::to_string(server.port()) + "/";
  constexpr std::chrono::milliseconds kSoon(200);
  constexpr std::chrono::milliseconds kLate(600'000);  // beyond the limit of a test
  using Time = std::optional<std::chrono::milliseconds>;
  const struct {
    std::chrono::milliseconds ofTransport;
    Time ofRequest;
  } cases[] = {
      {kLate, kSoon}, {kSoon, Time()}, {kSoon, Time(0)}, {kSoon, Time(std::chrono::hours(-1))}};
  for (const auto& item : cases) {
    configuration_.connectTimeout = configuration_.stallTimeout = item.ofTransport;
    remake();
    for (const bool connects : {false, true}) {
      HttpRequest request{HttpMethod::kGet, connects ? server.url("/") : secure, {}, {}, {}};
      request.connectTimeout = request.stallTimeout = item.ofRequest;
      const Outcome outcome = run(std::move(request));
      EXPECT_EQ(outcome.errorCode(), 28);
      EXPECT_THAT(outcome.text(), HasSubstr(connects ? "No byte has moved for 0.2 s"
                                                     : "The connection was not made in time"));
    }
  }
}

// ---- large bodies ----

TEST_F(CurlTransferLifeTest, SpoolsLargeAnswersToANamelessFileByteForByte) {
  const std::string large = sampleBytes(3 * platform::tuning::kMiB + 12345);
  const std::string small = sampleBytes(platform::tuning::kSpoolThreshold);
  ScriptedServer server([&](const WireRequest& request) {
    if (request.target() == "/small") return reply(200, small);
    if (request.target() == "/length") return reply(200, large);
    return WireReply().send("HTTP/1.1 200 OK\r\n\r\n" + large).close();
  });
  for (const char* target : {"/length", "/close"}) {
    const Outcome outcome = get(server.url(target));
    ASSERT_TRUE(outcome.response && outcome.response->body) << outcome.text();
    EXPECT_TRUE(outcome.body() == large) << target;
    const auto& file = outcome.response->body->file();
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(file->path(), directory_);
    struct stat status {};
    ASSERT_EQ(::fstat(file->descriptor(), &status), 0);
    EXPECT_EQ(status.st_nlink, 0U);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
  }
  const Outcome inMemory = get(server.url("/small"));
  EXPECT_TRUE(inMemory.body() == small);
  EXPECT_EQ(inMemory.response->body->file(), nullptr);
  EXPECT_TRUE(std::filesystem::is_empty(directory_));
}

TEST_F(CurlTransferLifeTest, NamesTheDirectoryWhereAnAnswerCannotBeStored) {
  // Made before, so that a slow machine does not let the transfer stall.
  const WireReply large = reply(200, sampleBytes(4 * platform::tuning::kMiB));
  ScriptedServer server([&](const WireRequest&) { return large; });
  const FileSizeLimit full(2 * platform::tuning::kMiB);
  const Outcome outcome = get(server.url("/"));
  EXPECT_EQ(outcome.errorCode(), codeOf(HttpTransportError::kResponseBodyNotStored));
  EXPECT_THAT(outcome.text(), HasSubstr(directory_ + ": File too large"));
  EXPECT_EQ(outcome.error->userInfo()["path"].textValue(), directory_);
}

TEST_F(CurlTransferLifeTest, SpoolsToTheTemporaryDirectoryWhereTheNamedOneTakesNoFile) {
  const std::string large = sampleBytes(2 * platform::tuning::kMiB);
  ScriptedServer server([&](const WireRequest&) { return reply(200, large); });
  const std::string temporary = directory_ + "/temporary";
  const std::string file = directory_ + "/file";
  std::filesystem::create_directory(temporary);
  std::ofstream(file) << "x";
  // /proc takes no file from anybody, root included.
  const std::pair<std::string, std::string> cases[] = {
      {directory_ + "/missing", "No such file or directory"},
      {file, "Not a directory"},
      {"/proc/self", "No such file or directory"},
      {std::string("/x\0y", 4), "Invalid argument"},
      {"/" + std::string(5000, 'x'), "File name too long"},
  };
  for (const auto& [directory, cause] : cases) {
    SCOPED_TRACE(cause);
    const auto ask = [&, &named = directory] {
      return run({HttpMethod::kGet, server.url("/"), {}, {}, named});
    };
    {
      const EnvironmentVariable usable("TMPDIR", temporary);
      const Outcome outcome = ask();
      ASSERT_TRUE(outcome.body() == large) << outcome.text();
      EXPECT_EQ(outcome.response->body->file()->path(), temporary);
    }
    const EnvironmentVariable unusable("TMPDIR", "/proc");
    const Outcome outcome = ask();
    EXPECT_EQ(outcome.errorCode(), codeOf(HttpTransportError::kResponseBodyNotStored));
    EXPECT_THAT(outcome.text(), HasSubstr(directory + ": " + cause));
    EXPECT_THAT(outcome.text(), HasSubstr("Creating a file in /proc: "));
    EXPECT_EQ(outcome.error->userInfo()["path"].textValue(), directory);
  }
}

TEST_F(CurlTransferLifeTest, ErrorsWithThePathWhereAFileShrinksWhileItIsSent) {
  const std::string path = directory_ + "/source";
  std::ofstream(path, std::ios::binary) << sampleBytes(2 * platform::tuning::kMiB);
  const auto file = Data::fromFile(path);
  ASSERT_TRUE(file);
  std::filesystem::resize_file(path, platform::tuning::kMiB);
  ScriptedServer server([](const WireRequest&) { return reply(200, ""); });
  const Outcome outcome = put(server.url("/"), {*file});
  EXPECT_EQ(outcome.errorCode(), codeOf(HttpTransportError::kRequestBodyUnreadable));
  EXPECT_THAT(outcome.text(), HasSubstr(path));
  EXPECT_TRUE(server.requests().empty());
}

TEST_F(CurlTransferLifeTest, DeliversAnAnswerThatComesBeforeTheBodyIsSent) {
  ScriptedServer server([](const WireRequest&) {
    return WireReply()
        .send("HTTP/1.1 413 Too Large\r\nContent-Length: 3\r\nConnection: close\r\n\r\nbig")
        .hold();
  });
  const Outcome outcome =
      put(server.url("/"), {Data::fromBytes(sampleBytes(32 * platform::tuning::kMiB))},
          {{std::string(kUnreadBodyHeader), "1"}});
  EXPECT_EQ(outcome.status(), 413) << outcome.text();
  EXPECT_EQ(outcome.body(), "big");
}

TEST_F(CurlTransferLifeTest, AnUploadThatNobodyReadsStalls) {
  ScriptedServer server(
      [](const WireRequest&) { return WireReply().wait(std::chrono::minutes(1)); });
  remakeImpatient();
  const Outcome outcome =
      put(server.url("/"), {Data::fromBytes(sampleBytes(32 * platform::tuning::kMiB))},
          {{std::string(kUnreadBodyHeader), "1"}});
  EXPECT_EQ(outcome.errorCode(), 28) << outcome.text();
}

// ---- TLS and the environment ----

TEST_F(CurlTransferLifeTest, TrustsOnlyConfiguredCertificatesWhateverTheEnvironmentSays) {
  const std::string expired = directory_ + "/expired";
  const std::string caFile = directory_ + "/ca.pem";
  std::filesystem::create_directory(expired);
  makeTestCertificate(directory_);
  makeTestCertificate(expired, "-1");
  writeFile(caFile,
            contentOf(directory_ + "/certificate.pem") + contentOf(expired + "/certificate.pem"));
  const auto answer = [](const WireRequest& request) {
    if (request.target() == "/down") return reply(302, "", "Location: http://127.0.0.1:1/\r\n");
    return reply(200, "secure");
  };
  ScriptedServer server(answer, directory_);
  ScriptedServer expiredServer(answer, expired);
  const std::string otherName = "https://localhost:" + std::to_string(server.port()) + "/";
  constexpr std::int64_t kNotTrusted = 60;
  {
    const EnvironmentVariable bundle("CURL_CA_BUNDLE", caFile);
    const EnvironmentVariable file("SSL_CERT_FILE", caFile);
    const EnvironmentVariable directory("SSL_CERT_DIR", directory_);
    EXPECT_EQ(get(server.url("/")).errorCode(), kNotTrusted);
    EXPECT_EQ(get(server.url("/")).failure(), "certificateNotTrusted");
  }
  configuration_.caFile = caFile;
  remake();
  const Outcome trusted = get(server.url("/"));
  EXPECT_EQ(trusted.body(), "secure") << trusted.text();
  EXPECT_EQ(get(otherName).errorCode(), kNotTrusted);
  EXPECT_EQ(get(expiredServer.url("/")).errorCode(), kNotTrusted);
  EXPECT_EQ(get(server.url("/down")).errorCode(), codeOf(HttpTransportError::kRedirectRefused));

  configuration_.caFile = directory_ + "/missing.pem";
  remake();
  const Outcome outcome = get(server.url("/"));
  EXPECT_EQ(outcome.errorCode(), 77);
  EXPECT_EQ(outcome.failure(), "trustFileUnusable");
  EXPECT_THAT(outcome.text(), HasSubstr("missing.pem"));
}

TEST_F(CurlTransferLifeTest, WritesNoKeysOfConnectionsWhereTheEnvironmentAsksForThem) {
  makeTestCertificate(directory_);
  ScriptedServer server([](const WireRequest&) { return reply(200, "{\"records\":[]}"); },
                        directory_);
  // libcurl asks the environment when it is first used, so this takes a process of its own.
  ChildProcess program(
      {.program = VARO_PROGRAM,
       .arguments = {"--home", directory_, "--cacert", directory_ + "/certificate.pem", "list",
                     server.url("/services/x")},
       .environment = {{"SSLKEYLOGFILE", directory_ + "/keys"}},
       .directory = directory_});
  program.wait();
  ASSERT_EQ(server.requests().size(), 1U) << program.errors();
  EXPECT_EQ(contentOf(directory_ + "/keys"), "");
}

}  // namespace
}  // namespace varo::test
