#include "Sandbox/GeneratedBytes.h"
#include "tests/support/SandboxFixture.h"

#include <openssl/evp.h>

namespace varo::sandbox {
namespace {

namespace json = boost::json;
using Mode = BlobObject::Mode;

std::string generated(std::uint64_t seed, std::uint64_t size) {
  std::string bytes(size, '\0');
  EXPECT_EQ(GeneratedBytes(seed, size).readAt(0, bytes), static_cast<std::int64_t>(size));
  return bytes;
}

std::string base64Answer(const std::string& bytes) {
  std::string text(4 * (bytes.size() / 3 + 1) + 1, '\0');
  const int length = ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
  return R"({"d":{"results":")" + text.substr(0, static_cast<std::size_t>(length)) + R"("}})";
}

/// What came, in one line: the status, some headers, and the body, as place and length in `all`
/// where it is a part of that.
std::string seen(const httplib::Result& answer, const std::string& all) {
  if (!answer) return "no answer";
  std::string line = std::to_string(answer->status);
  for (const char* name : {"Content-Range", "ETag", "X-Pelmar-Device-Log-Level"}) {
    if (answer->has_header(name)) line += "|" + answer->get_header_value(name);
  }
  const std::size_t from = all.find(answer->body);
  if (answer->body.empty()) return line + "|nothing";
  if (from != std::string::npos) {
    return line + "|" + std::to_string(from) + "+" + std::to_string(answer->body.size());
  }
  return line + "|" + (answer->get_header_value("Content-Type") == kJson ? answer->body : "other");
}

class SandboxBlobTest : public SandboxTest {
 protected:
  void put(std::uint64_t size, Mode mode = Mode::kKnownTotal, const std::string& logLevel = "") {
    const BlobKey key{"HR", "employees", {{"id", "1"}, {"branch", "north"}}};
    const auto error = server_->putBlob(
        key, {.generated = GeneratedContent{size, 7}, .mode = mode, .logLevel = logLevel});
    ASSERT_FALSE(error) << error->message;
  }

  /// As a client asks: nothing between the base URL and the scope.
  httplib::Result get(const httplib::Headers& headers = {},
                      const std::string& query = "id=1&branch=north&type=bytes&clientid=c") {
    return client().Get(split(server_->blobUrl() + "HR/employees/binary?" + query).path, headers);
  }
  httplib::Result range(const std::string& value) { return get({{"Range", "bytes=" + value}}); }
};

TEST_F(SandboxBlobTest, EveryModeAnswersEveryRangeAsItShould) {
  const std::string all = generated(7, 100);
  const std::string tag = R"(|"7-64"|debug|)";
  const std::string error = R"({"d":{"error":true,"msg":"the object cannot be read"}})";
  const struct {
    Mode mode;
    const char* range;
    std::string seen;
  } kCases[] = {
      {Mode::kKnownTotal, "0-39", "206|bytes 0-39/100" + tag + "0+40"},
      {Mode::kKnownTotal, "61-1000", "206|bytes 61-99/100" + tag + "61+39"},
      {Mode::kKnownTotal, "100-199", "416|bytes */100" + tag + "nothing"},
      {Mode::kUnknownTotal, "80-119", "206|bytes 80-99/*" + tag + "80+20"},
      {Mode::kUnknownTotal, "100-139", "206|bytes */*" + tag + "nothing"},
      {Mode::kWhole, "40-79", "200" + tag + "0+100"},
      {Mode::kBase64, "40-79", "200|debug|" + base64Answer(all)},
      {Mode::kError, "40-79", "200|debug|" + error},
  };
  for (const auto& c : kCases) {
    put(all.size(), c.mode, "debug");
    EXPECT_EQ(seen(range(c.range), all), c.seen) << static_cast<int>(c.mode) << " " << c.range;
  }
  // Several pieces, of a length that no block divides.
  const std::string large = generated(7, 3'000'001);
  put(large.size(), Mode::kBase64);
  EXPECT_TRUE(get()->body == base64Answer(large));
}

TEST_F(SandboxBlobTest, FaultsHitTheRangesTheyAreMeantFor) {
  const std::string tag = R"(|"7-64"|)";
  const struct {
    const char* action;
    std::string second;  ///< What the second range is answered.
  } kCases[] = {
      {R"({"shiftRange":10})", "206|bytes 50-89/100" + tag + "50+40"},
      {R"({"shiftRange":9223372036854775807})", "416|bytes */100" + tag + "nothing"},
      {R"({"shortenRange":7})", "206|bytes 40-46/100" + tag + "40+7"},
      {R"({"ignoreRange":true})", "200" + tag + "0+100"},
      {R"({"total":101})", "206|bytes 40-79/101" + tag + "40+40"},
      {R"({"headers":{"Content-Range":"bytes 1-"}})", "206|bytes 1-" + tag + "40+40"},
      {R"({"cutAfter":10})", "no answer"},
  };
  const std::string all = generated(7, 100);
  put(all.size());
  const auto inject = [&](const std::string& match, const std::string& action) {
    server_->clearFaults();
    const std::string rule = R"({"match":)" + match + R"(,"action":)" + action + "}";
    return client().Post("/control/faults", rule, kJson);
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(inject(R"({"ranged":true,"query":"id=1&","skip":1,"count":1})", c.action)->status,
              200);
    EXPECT_EQ(seen(get(), all), "200" + tag + "0+100") << "no range, not counted";
    EXPECT_EQ(seen(range("0-39"), all), "206|bytes 0-39/100" + tag + "0+40") << c.action;
    EXPECT_EQ(seen(range("40-79"), all), c.second) << c.action;
    EXPECT_EQ(*server_->requests().back().header("range"), "bytes=40-79") << "as it was sent";
    EXPECT_EQ(seen(range("80-119"), all), "206|bytes 80-99/100" + tag + "80+20") << c.action;
  }
  for (const char* bad : {R"({"shortenRange":0})", R"({"total":true})", R"({"headers":{"a":1}})"}) {
    EXPECT_EQ(inject("{}", bad)->status, 400) << bad;
  }
}

}  // namespace
}  // namespace varo::sandbox
