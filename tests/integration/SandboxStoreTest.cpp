#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SandboxFixture.h"

#include <set>

namespace varo::sandbox {
namespace {

namespace json = boost::json;
using namespace testing;

// SHA-256 of "" and of "hello, store".
constexpr const char* kEmptyHash =
    "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
constexpr const char* kHelloHash =
    "dc65b907380db5876cc5c953af9f2b621e7c7ae6b944cb36c2982e71f8d574d6";
constexpr const char* kHello = "hello, store";

class SandboxStoreTest : public SandboxTest {
 protected:
  using Words = std::vector<std::string>;

  void restartStore(ObjectStoreOptions store) {
    SandboxOptions options;
    options.objectStore = std::move(store);
    restart(options);
  }

  int runCurl(const Words& words) {
    curl_.reset();
    curl_ = std::make_unique<test::ChildProcess>(test::ChildProcess::Settings{
        .program = "curl", .arguments = words, .environment = {}, .directory = directory_});
    return curl_->wait();
  }
  bool curlCanSign() { return runCurl({"--aws-sigv4", "aws:amz", "--version"}) == 0; }

  /// Status and body of what the store answers to curl, which signs with keys and code of its own.
  std::string curl(const std::string& path, const Words& more = {},
                   const std::string& hash = kEmptyHash) {
    Words words{"-sS", "--path-as-is", "-w", "%{stderr}%{http_code}"};
    words.insert(words.end(), {"--aws-sigv4", "aws:amz:us-east-1:s3"});
    words.insert(words.end(), {"-u", "sandbox:sandbox-secret-key"});
    words.insert(words.end(), {"-H", "x-amz-content-sha256: " + hash});
    words.insert(words.end(), more.begin(), more.end());
    words.push_back(server_->storeUrl() + path);
    EXPECT_EQ(runCurl(words), 0) << path << curl_->errors();
    return curl_->errors() + "|" + curl_->output();
  }
  std::string put(const std::string& path, const std::string& bytes, const std::string& hash,
                  const Words& more = {}) {
    test::writeFile(directory_ + "/body", bytes);
    Words words{"-T", directory_ + "/body"};
    words.insert(words.end(), more.begin(), more.end());
    return curl(path, words, hash);
  }

  /// The object as the service gives it, which asks for no signature.
  httplib::Result object(const std::string& key) {
    return client().Get("/services/online/objects/" + percentEncoded(key));
  }

  json::object handedOut(const json::object& uploadParams, int status = 200) {
    const auto answer =
        client().Post(split(server_->templateUrl()).path, json::serialize(uploadParams), kJson);
    EXPECT_EQ(answer ? answer->status : 0, status) << json::serialize(uploadParams);
    return sandbox::object(answer);
  }

 private:
  std::unique_ptr<test::ChildProcess> curl_;
};

TEST_F(SandboxStoreTest, AnotherClientMovesObjectsUnderKeysOfAllShapes) {
  if (!curlCanSign()) GTEST_SKIP() << "curl cannot sign on this machine (--aws-sigv4)";
  const struct {
    std::string key, path;
  } kCases[] = {
      {"plain.txt", "/plain.txt"},
      {"bucket/a b.txt", "/bucket/a%20b.txt"},
      {"bucket/a+b&c=d,e;f:g@h!(i)*'j$",
       "/bucket/a%2Bb%26c%3Dd%2Ce%3Bf%3Ag%40h%21%28i%29%2A%27j%24"},
      {"bucket/100%25?#", "/bucket/100%2525%3F%23"},
      {"bucket/\xC3\xBC\xE6\x97\xA5~-_.", "/bucket/%C3%BC%E6%97%A5~-_."},
      {"../../out", "/../../out"},
      {"/etc//x", "//etc//x"},
      {"a\n\x01\xFF\"<", "/a%0A%01%FF%22%3C"},
      {"objects/x/y", "/objects/x/y"},
      {std::string(1024, 'k'), "/" + std::string(1024, 'k')},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(put(c.path, kHello, kHelloHash), "200|") << c.key;
    EXPECT_EQ(curl(c.path), std::string("200|") + kHello) << c.key;
    EXPECT_EQ(object(c.key)->body, kHello) << c.key << " is not the key of " << c.path;
  }
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(directory_ + "/store")) {
    EXPECT_TRUE(entry.is_regular_file());
    names.insert(entry.path().filename());
  }
  EXPECT_EQ(names.size(), std::size(kCases)) << "one file an object, and nothing elsewhere";

  EXPECT_EQ(curl("/plain.txt", {"-r", "7-8"}), "206|st");
  EXPECT_THAT(curl("/plain.txt", {"-r", "12-"}), StartsWith("416|<?xml"));
  EXPECT_EQ(curl("/plain.txt", {"-X", "DELETE"}), "204|");
  EXPECT_THAT(curl("/plain.txt"), HasSubstr("<Code>NoSuchKey</Code>"));
  EXPECT_EQ(put("/empty", "", "UNSIGNED-PAYLOAD"), "200|");
  EXPECT_EQ(curl("/empty"), "200|");
}

TEST_F(SandboxStoreTest, RefusesWithTheReasonAndKeepsTheObject) {
  if (!curlCanSign()) GTEST_SKIP() << "curl cannot sign on this machine (--aws-sigv4)";
  ASSERT_EQ(put("/b/x", kHello, kHelloHash), "200|");
  const ObjectStoreOptions usual;
  const ObjectStoreOptions late{.clockOffset = std::chrono::minutes(16)};
  const ObjectStoreOptions strict{.allowsUnsignedPayload = false};
  const struct {
    ObjectStoreOptions store;
    Words more;
    const char* hash;
    std::string refusal;
  } kCases[] = {
      {usual, {"-u", "sandbox:wrong"}, kHelloHash, "403 SignatureDoesNotMatch"},
      {usual, {}, kEmptyHash, "400 XAmzContentSHA256Mismatch"},
      {usual, {"-X", "DELETE"}, kEmptyHash, "400 XAmzContentSHA256Mismatch"},
      {usual, {"-H", "x-amz-copy-source: /b/y"}, kHelloHash, "501 NotImplemented"},
      {late, {}, kHelloHash, "403 RequestTimeTooSkewed"},
      {strict, {}, "UNSIGNED-PAYLOAD", "403 AccessDenied"},
  };
  for (const auto& c : kCases) {
    restartStore(c.store);
    const std::string status = c.refusal.substr(0, 3);
    EXPECT_THAT(put("/b/x", "other bytes!", c.hash, c.more),
                testing::AllOf(StartsWith(status + "|<?xml"),
                               HasSubstr("<Code>" + c.refusal.substr(4) + "</Code><Message>")))
        << c.refusal;
    EXPECT_EQ(object("b/x")->body, kHello) << c.refusal;
  }
  restartStore(usual);
  const auto bare = store().Get("/b/x");
  EXPECT_EQ(bare->status, 403);
  EXPECT_THAT(bare->body, HasSubstr("<Code>AccessDenied</Code>"));
  EXPECT_EQ(curl("/b/x?acl=").substr(0, 3), "501");
  EXPECT_EQ(curl("/").substr(0, 3), "501");
  EXPECT_EQ(curl("/" + std::string(1025, 'k')).substr(0, 3), "400");

  restartStore({.requiresSignature = false});
  EXPECT_EQ(store().Get("/b/x")->body, kHello);
  const auto half = [](std::size_t, std::size_t, httplib::DataSink& sink) {
    return sink.write("half", 4) && false;
  };
  EXPECT_FALSE(store().Put("/b/x", 1000, half, kOctets)) << "the body breaks off";
  EXPECT_EQ(object("b/x")->body, kHello);
  // The server may still be giving that one up, and refuses another meanwhile.
  EXPECT_TRUE(test::eventually([&] { return store().Put("/b/x", "new", kOctets)->status == 200; }));
  EXPECT_EQ(object("b/x")->body, "new");
  EXPECT_EQ(curl("/b/x", {"-u", "sandbox:wrong"}).substr(0, 3), "403") << "a signature must hold";
}

TEST_F(SandboxStoreTest, TemplatesSayWhatWasWishedForAndLeadToTheObject) {
  const std::string store = server_->storeUrl();
  const json::object expected{{"opstatus", 7},        {"uploadMode", "binary"},
                              {"method", "PUT"},      {"Host", store.substr(7)},
                              {"domain", store},      {"relativepath", "/${objectName}"},
                              {"Auth", "HMACDigest"}, {"AuthParameters", {{"serviceName", "s3"}}}};
  const char* wish = R"({"address":"domain","opstatus":7})";
  EXPECT_EQ(handedOut({{"objectName", "b/x"}, {"sandbox_template", wish}}), expected);

  const std::string inStore = store + "/b/a%20b%25.txt";
  const struct {
    const char* wish;
    std::string address;  ///< How it begins.
    int status;           ///< Of an upload without keys to there.
  } kCases[] = {
      {R"({"auth":"presigned"})", inStore + "?X-Amz-Alg", 200},
      {R"({"uploadMode":"multipart"})", base_.origin + "/services/online/objects/b/a%20b%25.txt",
       200},
      {R"({"uploadMode":"multipart","domain":"store","auth":"presigned"})", inStore + "?X-Amz-Alg",
       200},
      {R"({"auth":"none","entries":{"method":null,"headers":{"A":"b"}}})", inStore, 403},
  };
  for (const auto& c : kCases) {
    const auto form = handedOut({{"objectName", "b/a b%.txt"}, {"sandbox_template", c.wish}});
    const std::string url(form.at("endpointUrl").as_string());
    EXPECT_THAT(url, StartsWith(c.address));
    const bool isForm = form.at("uploadMode") == "multipart";
    EXPECT_EQ(form.contains("requestBody"), isForm);
    EXPECT_EQ(form.contains("headers"), !form.contains("method")) << "the entries come last";
    const std::string bytes = std::string(isForm ? "form " : "plain ") + c.wish;
    httplib::Client http(split(url).origin);
    const auto answer =
        isForm ? http.Post(split(url).path, {{"details", R"({"a":1})", "", ""},
                                             {"file", bytes, "fileName", kOctets},
                                             {"more", "another file", "fileName", kOctets}})
               : http.Put(split(url).path, bytes, kOctets);
    EXPECT_EQ(answer->status, c.status) << c.wish << answer->body;
    EXPECT_EQ(object("b/a b%.txt")->body == bytes, c.status == 200);
  }
}

TEST_F(SandboxStoreTest, TemplateEndpointRefusesAndMisbehavesAsAsked) {
  EXPECT_EQ(handedOut({{"sandbox_template", {{"status", 201}}}}, 201).at("opstatus"), 0);
  EXPECT_FALSE(handedOut({{"sandbox_template", {{"opstatus", nullptr}}}}).contains("opstatus"));
  for (const char* wish :
       {"1", R"({"typo":1})", R"({"uploadMode":1})", R"({"auth":"hmacdigest"})",
        R"({"address":null})", R"({"opstatus":"1"})", R"({"status":199})", R"({"entries":[]})",
        R"({"auth":"presigned","uploadMode":"multipart"})"}) {
    const json::object uploadParams{{"sandbox_template", json::parse(wish)}};
    EXPECT_EQ(handedOut(uploadParams, 400).at("opstatus"), 8002) << wish;
  }
  EXPECT_EQ(client().Post(split(server_->templateUrl()).path, "[]", kJson)->status, 400);
  EXPECT_EQ(opstatus(client().Post(split(server_->templateUrl()).path)), 0) << "no parameters";

  const std::string path = "/services/online/objects/";
  EXPECT_EQ(opstatus(client().Post(path + "x", "bytes", kOctets)), 8013);
  EXPECT_EQ(opstatus(client().Post(path + "x", {{"details", "{}", "", ""}})), 8010) << "no file";
  EXPECT_EQ(opstatus(client().Post(path + "x", {{"t", std::string(1'100'000, 't'), "", ""},
                                                {"file", "f", "f", kOctets}})),
            8010);
  EXPECT_EQ(opstatus(client().Put(path, "bytes", kOctets)), 8002);
  EXPECT_EQ(client().Get(path + "x")->status, 404) << "nothing of that was stored";
  const auto answer = sandbox::object(
      client().Post(path + "x", {{"details", R"({"a":1})", "", ""}, {"file", "f", "n", kOctets}}));
  EXPECT_EQ(
      json::serialize(answer.at("parts")),
      R"([{"name":"details","size":7,"value":{"a":1}},{"name":"file","size":1,"fileName":"n"}])");
}

TEST_F(SandboxStoreTest, TemplatesPointAtAnOutsideStoreWithItsKeys) {
  const std::string elsewhere = directory_ + "/elsewhere";
  SandboxOptions options;
  options.dataDirectory = elsewhere;
  options.objectStore = {.accessKey = "a/b", .secretKey = "other", .region = "eu-north-1"};
  SandboxServer outside(options);
  ASSERT_FALSE(outside.start());
  options.objectStore.outsideUrl = outside.storeUrl();
  restartStore(options.objectStore);
  const auto form =
      handedOut({{"objectName", "b/x y"}, {"sandbox_template", {{"auth", "presigned"}}}});
  const Address address = split(std::string(form.at("endpointUrl").as_string()));
  EXPECT_EQ(address.origin, outside.storeUrl());
  EXPECT_EQ(httplib::Client(address.origin).Put(address.path, kHello, kOctets)->status, 200);
  handedOut({{"sandbox_template", {{"uploadMode", "multipart"}, {"domain", "store"}}}}, 400);
}

}  // namespace
}  // namespace varo::sandbox
