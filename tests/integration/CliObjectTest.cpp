#include "tests/support/Await.h"
#include "tests/support/CliFixture.h"

namespace varo::test {
namespace {

using platform::Dictionary;
using platform::Value;

constexpr char kToken[] = "t0k3n-marker";
constexpr char kWrong[] = "wr0ng-marker";
constexpr std::size_t kRange = 1'000'000;

std::vector<std::string> namesOf(const std::vector<Dictionary>& events) {
  std::vector<std::string> names;
  for (const Dictionary& event : events) names.push_back(event["event"].textValue());
  return names;
}

/// The built program and the sandbox's signed store. No secret may be in anything that it prints.
class CliObjectTest : public CliFixture {
 protected:
  void SetUp() override {
    CliFixture::SetUp();
    std::filesystem::create_directories(home());
  }

  static std::string secret() { return sandbox::ObjectStoreOptions().secretKey; }

  std::string write(const std::string& name, const std::string& text) {
    writeFile(home() + "/" + name, text);
    return home() + "/" + name;
  }
  static Words joined(Words words, const Words& more) {
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  std::string getConfig() {
    const std::string store = sandbox().storeUrl();
    return write("get.json", R"({"method":"GET","ChunkSize":1000000,"Auth":"HMACDigest",)"
                             R"("AuthParameters":{"objectName":"${fileId}","serviceName":"s3",)"
                             R"("regionName":"us-east-1","accessKeyID":"sandbox",)"
                             R"("secretAccessKey":"${secret}"},"endpointUrl":")" +
                                 store + R"(/${fileId}","Host":")" +
                                 store.substr(store.find("//") + 2) + "\"}");
  }
  /// The command that gets an object, with the secret among its parameters.
  Words get(const std::string& object, const std::string& key, const Words& more = {}) {
    return joined({"object", "get", "--config", getConfig(), "--param", "fileId=" + object,
                   "--param", "secret=" + key},
                  more);
  }
  Words put(const std::string& object, const std::string& key, const std::string& file,
            const Words& more = {}) {
    const std::string config =
        write("put-" + key + ".json",
              R"({"FilePath":"/replaced by --file","uploadParams":{"accessKeyID":"sandbox",)"
              R"("regionName":"us-east-1","objectName":")" +
                  object + R"(","secretAccessKey":")" + key + R"("},"URL":")" +
                  sandbox().templateUrl() + "\"}");
    return joined({"object", "put", "--config", config, "--file", file}, more);
  }
  /// Runs the program with all that it can log.
  Run traced(const Words& words) {
    ChildProcess::Settings settings = settingsFor(joined(words, {"--log-level", "trace"}));
    settings.environment.back() = {"VARO_TOKEN", kToken};
    Run run = CliFixture::run(settings);
    for (const std::string& marker : {secret(), std::string(kToken), std::string(kWrong)}) {
      EXPECT_EQ((run.output + run.errors).find(marker), std::string::npos) << words[1];
    }
    return run;
  }
  /// Everything in the documents directory that is no directory that stays.
  [[nodiscard]] std::vector<std::string> documents() const {
    std::vector<std::string> found;
    std::error_code none;
    const std::filesystem::recursive_directory_iterator entries(home() + "/Documents", none);
    for (const auto& entry : entries) {
      if (entry.path().filename() != "downloads") found.push_back(entry.path());
    }
    return found;
  }
};

TEST_F(CliObjectTest, SignedObjectsComeBackAsTheyWerePut) {
  struct Case {
    std::string object;  // as it stands in addresses
    std::size_t size;
    std::size_t ranges;
  };
  const std::vector<Case> cases = {{"one.bin", 1, 1},
                                   {"album/two%20words/%C3%A9%E2%82%AC.bin", 2 * kRange + 1, 3}};
  for (const Case& c : cases) {
    const std::string file = makeFile("file.bin", c.size);
    const auto sent = eventsEndingIn("success", traced(put(c.object, secret(), file, {"--json"})));
    EXPECT_EQ(namesOf(sent), (Words{"started", "success"}));
    EXPECT_EQ(sent.back()["result"].dictionaryValue()["id"], sent.front()["id"]);

    const auto received = eventsEndingIn("success", traced(get(c.object, secret(), {"--json"})));
    Words expected(c.ranges + 2, "chunk");
    expected.front() = "started";
    expected.back() = "success";
    EXPECT_EQ(namesOf(received), expected);
    const Dictionary result = received.back()["result"].dictionaryValue();
    EXPECT_EQ(result["id"], Value(c.object));
    const std::string path = result["FilePath"].textValue();
    EXPECT_EQ(documents(), Words{path});
    EXPECT_TRUE(contentOf(path) == contentOf(file)) << c.object;
    std::filesystem::remove(path);

    const Run streamed = traced(get(c.object, secret(), {"--stream"}));
    EXPECT_EQ(streamed.status, 0) << streamed.errors;
    EXPECT_TRUE(streamed.output == contentOf(file)) << c.object;
    EXPECT_EQ(documents(), Words());
  }
}

TEST_F(CliObjectTest, FailuresGiveTheReasonAndLeaveNothing) {
  const std::string file = makeFile("file.bin", 10);
  ASSERT_EQ(traced(put("there", secret(), file)).status, 0);
  const std::string broken = write(
      "broken.json", R"({"uploadParams":{"sandbox_template":{"uploadMode":"pigeon"}},"URL":")" +
                         sandbox().templateUrl() + "\"}");
  const std::pair<Words, std::string> cases[] = {
      {put("there", kWrong, file), "HTTP status 403: SignatureDoesNotMatch: The signature is not"},
      {get("there", kWrong), "Forbidden, HTTP status 403: SignatureDoesNotMatch: The signature"},
      {get("there", kWrong, {"--stream"}), "hint: Check \"secretAccessKey\""},
      {get("not-there", secret()), "HTTP status 404: NoSuchKey"},
      {put("there", secret(), home() + "/none"), "Could not find File at given FilePath"},
      {{"object", "put", "--config", broken, "--file", file}, "\"uploadMode\" 'pigeon'"},
      {{"object", "get", "--config", getConfig()}, "fileParam fileId is not provided"},
  };
  for (const auto& [words, message] : cases) {
    const Run run = traced(words);
    EXPECT_EQ(run.status, 1) << message;
    EXPECT_EQ(run.output, "") << message;
    EXPECT_NE(run.errors.find(message), std::string::npos) << run.errors;
    EXPECT_EQ(documents(), Words()) << message;
  }
  const Run json = traced(get("there", kWrong, {"--json"}));
  EXPECT_EQ(json.status, 1);
  eventsEndingIn("failure", json);
  EXPECT_NE(json.output.find("SignatureDoesNotMatch"), std::string::npos) << json.output;
}

TEST_F(CliObjectTest, TokenGoesWithTransfersOfTheServiceThroughTheOptions) {
  startSandbox(kToken);
  const std::string up =
      write("up.json", R"({"headers":{"X-Pelmar-Authorization":")" + std::string(kToken) +
                           R"("},"uploadParams":{"objectName":"o","sandbox_template":)"
                           R"({"domain":"service","address":"domain"}},"URL":")" +
                           sandbox().templateUrl() + "\"}");
  const std::string down =
      write("down.json", R"({"domain":"#middlewaredomain","relativepath":"/online/objects/o"})");
  const std::string options =
      write("options.json", R"({"domain":")" + sandbox().originUrl() + R"(/services"})");
  const std::string file = makeFile("file.bin", 1000);
  const Run sent = traced({"object", "put", "--config", up, "--file", file, "--options", options});
  EXPECT_EQ(sent.status, 0) << sent.errors;
  const Run received =
      traced({"object", "get", "--config", down, "--options", options, "--stream"});
  EXPECT_EQ(received.status, 0) << received.errors;
  EXPECT_TRUE(received.output == contentOf(file));
}

TEST_F(CliObjectTest, ClosedPipeAndInterruptEndTheCommandAndLeaveNothing) {
  const std::string file = makeFile("file.bin", 3 * kRange);
  ASSERT_EQ(traced(put("o", secret(), file)).status, 0);
  const Words stream = get("o", secret(), {"--stream"});
  const Run run = runInShell("{ \"$0\" \"$@\"; echo \"status $?\" >&2; } | head -c 10", stream);
  EXPECT_EQ(run.output, contentOf(file).substr(0, 10));
  EXPECT_NE(run.errors.find("cannot write standard output: Broken pipe"), std::string::npos);
  EXPECT_NE(run.errors.find("status 1\n"), std::string::npos) << run.errors;

  const Run closed = runInShell("\"$0\" \"$@\" >&-", stream);
  EXPECT_EQ(closed.status, 1);
  EXPECT_NE(closed.errors.find("cannot write standard output: Bad file descriptor"),
            std::string::npos)
      << closed.errors;

  sandbox().addFault(
      {{.path = "/o", .skip = 1}, {.stallAfter = 1000, .stallFor = std::chrono::milliseconds(-1)}});
  ChildProcess child(settingsFor(get("o", secret(), {"--json"})));
  ASSERT_TRUE(eventually([&] { return child.output().find("chunk") != std::string::npos; }));
  interrupt(child, "failure", SIGINT);
  EXPECT_EQ(documents(), Words());
}

}  // namespace
}  // namespace varo::test
