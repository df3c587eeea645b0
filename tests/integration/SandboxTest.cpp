#include "Binary/Binary/Utils/S3RequestSigner.h"
#include "Platform/Crypto/Sha256.h"
#include "tests/support/SandboxFixture.h"

#include <cstring>

namespace varo::sandbox {
namespace {

namespace json = boost::json;
using testing::ElementsAreArray;
using testing::StartsWith;

TEST_F(SandboxTest, WrongChunksAreRefusedAndTheUploadGoesOn) {
  constexpr std::size_t kChunk = 1000;
  const std::string bytes = sampleBytes(2 * kChunk + 500);
  const Upload upload = create({{"file_name", "a"}, {"file_size", bytes.size()}});
  const auto send = [&](const std::string& sequence, const std::string& piece) {
    return opstatus(httpRequest("PUT", upload.url + "?chunk_sequence=" + sequence, piece));
  };
  EXPECT_EQ(opstatus(commit(upload.id)), 8005);
  EXPECT_EQ(send("2", "x"), 8006);
  EXPECT_EQ(send("1x", "x"), 8002);
  EXPECT_EQ(send("1", bytes.substr(0, kChunk)), 0);
  EXPECT_EQ(send("3", "x"), 8006);
  EXPECT_EQ(send("2", std::string(2 * kChunk + 1, 'x')), 8006) << "more than everything";
  EXPECT_EQ(send("1", bytes.substr(0, kChunk)), 0);
  EXPECT_EQ(send("2", bytes.substr(kChunk, kChunk)), 0);
  EXPECT_EQ(send("2", bytes.substr(kChunk, kChunk)), 0) << "the answer got lost";
  EXPECT_EQ(send("3", std::string(kChunk + 1, 'x')), 8006) << "more than a chunk, less than all";
  EXPECT_EQ(opstatus(commit(upload.id)), 8007);
  EXPECT_EQ(send("3", bytes), 0) << "everything once more";
  EXPECT_EQ(send("4", "x"), 8006) << "the short one was the last";
  EXPECT_EQ(opstatus(httpRequest("POST", upload.url, "x")), 8013);
  EXPECT_EQ(opstatus(commit(upload.id)), 0);
  EXPECT_EQ(send("3", bytes.substr(2 * kChunk)), 8005);
  EXPECT_EQ(ask("GET", bytesPath(upload.id)).body, bytes);
}

// Also with what two readers could read differently, such as where a body ends.
TEST_F(SandboxTest, HostileRequestsAreAnsweredAndHarmNobody) {
  const std::string id = storedFile("safe");
  const std::string put = "PUT " + files_ + " HTTP/1.1\r\n";
  const struct {
    std::string request, status;
  } kCases[] = {
      {"GET " + bytesPath("..%2f..%2frecords.sqlite") + " HTTP/1.1\r\n\r\n", "404"},
      {"GET / HTTP/2\r\n\r\n", "505"},
      {"GET  / HTTP/1.1\r\n\r\n", "400"},
      {"G\x01T / HTTP/1.1\r\n\r\n", "400"},
      {"GET / HTTP/1.1\r\nA: b\r\n folded\r\n\r\n", "400"},
      {"GET / HTTP/1.1\r\nA : b\r\n\r\n", "400"},
      {"GET / HTTP/1.1\r\nA: b\nC: d\r\n\r\n", "400"},
      {put + "Content-Length: 99999999999999999999\r\n\r\n", "400"},
      {put + "Content-Length: 1\r\nContent-Length: 2\r\n\r\n", "400"},
      {put + "Content-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n", "400"},
      {put + "Transfer-Encoding: gzip\r\n\r\n", "501"},
      {put + "Content-Encoding: gzip\r\n\r\n", "415"},
      {put + "Transfer-Encoding: chunked\r\n\r\nfffffffffffffffff\r\n", "400"},
      {put + "Content-Length: 50\r\n\r\nshort", "400"},
      {"\x16\x03\x01\x02\xfc\x03\x03\r\n\r\n", "400"},
      {"\r\n\r\nGET /control/nothing HTTP/1.1\r\n\r\n", "404"},
  };
  for (const auto& c : kCases) {
    test::RawConnection connection(base_.origin);
    EXPECT_TRUE(connection.send(c.request));
    connection.endSending();
    EXPECT_THAT(connection.receive(), StartsWith("HTTP/1.1 " + c.status))
        << c.request.substr(0, 100);
  }
  EXPECT_EQ(list().size(), 1u);
  EXPECT_EQ(ask("GET", bytesPath(id)).body, "safe");
}

/// What a client reads in an answer to a poll, in one line.
std::string told(const HttpAnswer& result) {
  const json::object answer = object(result);
  if (const json::value* status = answer.if_contains("poll_status")) {
    return json::serialize(*status);
  }
  const std::string http = std::to_string(result.status) + " ";
  if (!answer.contains("opstatus")) return http + result.body;
  return http + json::serialize(answer.at("opstatus"));
}

TEST_F(SandboxTest, EveryKindOfDeleteTellsItsPollsWhatItShouldAndRemovesTheFileInTime) {
  const std::string kReason = "the delete failed, as was asked for";
  const std::string yes = R"("true")";
  const std::string no = R"("false")";
  const auto eraseId = [this](const std::string& id) {
    return ask("DELETE", files_ + "?$filter=" + percentEncode("file_id eq '" + id + "'"));
  };
  const auto bytesAreGone = [this] {
    return std::filesystem::is_empty(directory_ + "/files") &&
           std::filesystem::is_empty(directory_ + "/objects");
  };
  const struct {
    const char* kind;
    std::vector<std::string> polls;
    bool gone;
  } kCases[] = {
      {R"({"mode":"accepted","polls":0})", {no, no}, true},
      {R"({"mode":"accepted","polls":3})", {yes, yes, yes, no}, true},
      {R"({"mode":"boolean","polls":1})", {yes, "false"}, true},
      {R"({"mode":"never","polls":1})", {yes, yes, yes, yes, yes, yes}, false},
      {R"({"mode":"failing"})", {yes, "200 8016", "200 8016"}, false},
      {R"({"mode":"failing","polls":0,"opstatus":5,"status":500})", {"500 5"}, false},
      {R"({"mode":"failing","polls":0,"status":503})", {"503 " + kReason}, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.kind);
    const std::string id = storedFile("x", {{"file_name", "a"}, {"sandbox_delete", c.kind}});
    const auto answer = eraseId(id);
    ASSERT_EQ(opstatus(answer), 0) << answer.body;
    EXPECT_EQ(answer.status, 202);
    EXPECT_EQ(object(answer).at("httpStatusCode"), answer.status);
    const std::string poll = "/services" + std::string(object(answer).at("poll_api").as_string());
    std::vector<std::string> polls;
    while (polls.size() < c.polls.size()) {
      if (polls.empty() || polls.back() == yes) {
        EXPECT_FALSE(list().empty()) << "gone too early";
      }
      // The way a client does: behind "services" of the URL that it knows.
      polls.push_back(told(ask("GET", poll)));
    }
    EXPECT_THAT(polls, ElementsAreArray(c.polls));
    EXPECT_EQ(list().empty(), c.gone);
    EXPECT_EQ(bytesAreGone(), c.gone);
    if (!c.gone) {
      ask("PUT", files_, json::serialize(json::object{{"file_id", id}, {"sandbox_delete", {}}}));
      EXPECT_EQ(eraseId(id).status, 200) << "the wish was taken back";
    }
  }
}

TEST_F(SandboxTest, SignedObjectsAreStoredUnderKeysOfAllShapesAndOnlyTheBytesThatWereSigned) {
  const std::pair<std::string, std::string> kCases[] = {
      {"plain.txt", "/plain.txt"},
      {"bucket/a+b&c=d,e;f:g@h!(i)*'j$",
       "/bucket/a%2Bb%26c%3Dd%2Ce%3Bf%3Ag%40h%21%28i%29%2A%27j%24"},
      {"bucket/100%25?# \xC3\xBC~-_.", "/bucket/100%2525%3F%23%20%C3%BC~-_."},
      {"../../out", "/../../out"},
      {"/etc//x", "//etc//x"},
      {"a\n\x01\xFF\"<", "/a%0A%01%FF%22%3C"},
      {std::string(1024, 'k'), "/" + std::string(1024, 'k')},
  };
  const binary::S3RequestSigner signer({"sandbox", "sandbox-secret-key", ""}, "us-east-1");
  for (const auto& [key, path] : kCases) {
    const auto headers = signer.sign({.method = "PUT",
                                      .host = server_->storeUrl().substr(std::strlen("http://")),
                                      .path = "/" + key,
                                      .payloadHash = platform::Sha256::of("signed")->hex()});
    ASSERT_TRUE(headers.ok());
    test::HttpHeaders lines;
    for (const auto& [name, value] : *headers) lines.emplace_back(name, value);
    const std::string url = server_->storeUrl() + path;
    EXPECT_EQ(httpRequest("PUT", url, "signed", lines).status, 200) << key;
    EXPECT_EQ(httpRequest("PUT", url, "others", lines).status, 400) << key;
    // As the service gives it, which asks for no signature.
    EXPECT_EQ(ask("GET", "/services/online/objects/" + percentEncode(key)).body, "signed") << key;
  }
  const std::filesystem::directory_iterator all(directory_ + "/store");
  EXPECT_EQ(std::distance(begin(all), end(all)), std::ssize(kCases)) << "and nothing elsewhere";
}

TEST_F(SandboxTest, RangesOfABlobEndWithItsBytes) {
  using Mode = BlobObject::Mode;
  const struct {
    Mode mode;
    std::string range, seen;
  } kCases[] = {
      {Mode::kKnownTotal, "61-1000", "206 bytes 61-99/100, 39 bytes"},
      {Mode::kKnownTotal, "100-199", "416 bytes */100, 0 bytes"},
      {Mode::kUnknownTotal, "80-119", "206 bytes 80-99/*, 20 bytes"},
      {Mode::kUnknownTotal, "100-139", "206 bytes */*, 0 bytes"},
      {Mode::kWhole, "40-79", "200 , 100 bytes"},
  };
  for (const auto& c : kCases) {
    const auto error = server_->putBlob(
        {"HR", "e", {{"id", "1"}}},
        {.generated = GeneratedContent{100, 7}, .mode = c.mode, .logLevel = "debug"});
    ASSERT_FALSE(error) << error->message;
    const auto answer = httpRequest("GET", server_->blobUrl() + "HR/e/binary?id=1&type=bytes", {},
                                    {{"Range", "bytes=" + c.range}});
    EXPECT_EQ(std::to_string(answer.status) + " " + answer.header("Content-Range") + ", " +
                  std::to_string(answer.body.size()) + " bytes",
              c.seen);
    EXPECT_EQ(answer.header("ETag"), R"("7-64")");
    EXPECT_EQ(answer.header("X-Pelmar-Device-Log-Level"), "debug");
  }
}

}  // namespace
}  // namespace varo::sandbox
