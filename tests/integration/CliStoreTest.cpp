#include "tests/support/CliFixture.h"

#include <gmock/gmock.h>

#include <algorithm>

// The built program on objects of a store that is addressed directly.

namespace varo::test {
namespace {

using namespace platform;
using testing::HasSubstr;

class CliStoreTest : public CliFixture {
 protected:
  /// Runs `object COMMAND` with the store's keys in the environment.
  [[nodiscard]] Run object(const Words& words, const std::string& input = {},
                           const std::string& secret = "sandbox-secret-key") {
    ChildProcess::Settings settings = settingsFor(joined({"object"}, words));
    settings.environment.insert(settings.environment.end(),
                                {{"VARO_ENDPOINT", sandbox().storeUrl() + "/"},
                                 {"VARO_ACCESS_KEY", "sandbox"},
                                 {"VARO_SECRET_KEY", secret}});
    settings.input = input;
    return run(settings);
  }
};

TEST_F(CliStoreTest, WhatIsPutFromAFileOrAnInputIsListedToldGotAndRemoved) {
  const struct {
    std::string address, key, content;
    bool isInput;
  } cases[] = {
      {"s3://bucket/photos/", "photos/f 1.bin", std::string(100'000, 'x'), false},
      {"s3://bucket/a/\u00e9 %20+.txt", "a/\u00e9 %20+.txt", "from an input", true},
      {"s3://bucket/empty", "empty", "", false},
      {"s3://bucket/nothing", "nothing", "", true},
  };
  std::vector<std::string> keys;
  for (const auto& c : cases) {
    const std::string file = makeFile("f 1.bin", 1);
    writeFile(file, c.content);
    const Run put = object({"put", c.address, "--file", c.isInput ? "-" : file, "--json"},
                           c.isInput ? c.content : "");
    EXPECT_EQ(resultOf(put)["key"], Value(c.key));
    const std::string address = "s3://bucket/" + c.key;
    const Dictionary head = resultOf(object({"head", address, "--json"}));
    EXPECT_EQ(head["size"], Value(c.content.size()));
    EXPECT_EQ(object({"get", address, "-o", "-"}).output, c.content);
    const std::string path = resultOf(object({"get", address, "--json"}))["FilePath"].textValue();
    EXPECT_EQ(path, home() + "/Downloads/" + c.key.substr(c.key.rfind('/') + 1));
    EXPECT_EQ(contentOf(path), c.content);
    keys.push_back(c.key);
  }
  const Run again = object({"get", "s3://bucket/empty"});
  EXPECT_THAT(again.errors, HasSubstr("hint: --if-exists"));

  std::sort(keys.begin(), keys.end());
  const Dictionary all = resultOf(object({"list", "s3://bucket", "--json"}));
  std::vector<std::string> listed;
  for (const Value& entry : *all["objects"].array()) {
    listed.push_back(entry.dictionaryValue()["key"].textValue());
  }
  EXPECT_EQ(listed, keys);
  const Run folders = object({"list", "s3://bucket/", "--delimiter", "/"});
  EXPECT_THAT(folders.output, HasSubstr("\nphotos/\n"));
  EXPECT_THAT(folders.output, HasSubstr("\n4 objects, "));

  EXPECT_EQ(object({"delete", "s3://bucket/empty"}).output, "Deleted s3://bucket/empty\n");
  const Dictionary gone =
      eventsEndingIn("failure", object({"head", "s3://bucket/empty", "--json"})).back();
  EXPECT_EQ(gone["kind"], Value("notFound"));
  EXPECT_EQ(gone["httpStatus"], Value(404));
}

TEST_F(CliStoreTest, AGetGoesOnWithWhatTheLastOneHasKept) {
  const std::string file = makeFile("large.bin", std::size_t{17} << 20);
  resultOf(object({"put", "s3://bucket/", "--file", file, "--json"}));
  const Words get{
      "get",   "s3://bucket/large.bin", "-o", home() + ".bin", "--resume", "--parallel", "1",
      "--json"};
  sandbox().addFault(
      {.match = {.path = "/bucket/", .skip = 1, .count = 1}, .action = {.status = 403}});
  eventsEndingIn("failure", object(get));
  EXPECT_FALSE(std::filesystem::exists(home() + ".bin"));
  const auto events = eventsEndingIn("success", object(get));
  EXPECT_GE(events.front()["bytesWritten"].integerValue(), 8 << 20);
  EXPECT_EQ(contentOf(home() + ".bin"), contentOf(file));
}

TEST_F(CliStoreTest, FailureNamesTheObjectAndWhatToCheckAndNoSecret) {
  const Run refused = object({"get", "s3://bucket/k"}, {}, "wr0ng-marker");
  EXPECT_EQ(refused.status, 1);
  EXPECT_THAT(refused.errors,
              testing::AllOf(HasSubstr("s3://bucket/k"), HasSubstr("VARO_SECRET_KEY"),
                             Not(HasSubstr("wr0ng-marker"))));
  EXPECT_FALSE(std::filesystem::exists(home() + "/Downloads/k"));
}

}  // namespace
}  // namespace varo::test
