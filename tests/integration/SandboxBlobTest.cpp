#include "Sandbox/GeneratedBytes.h"
#include "tests/support/SandboxFixture.h"

#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <openssl/evp.h>

#include <algorithm>
#include <span>
#include <string>
#include <vector>

namespace varo::sandbox {
namespace {

namespace json = boost::json;
using Mode = BlobObject::Mode;

std::string generated(std::uint64_t seed, std::uint64_t size) {
  std::string bytes(size, '\0');
  EXPECT_EQ(GeneratedBytes(seed, size).readAt(0, bytes), static_cast<std::int64_t>(size));
  return bytes;
}

std::string inBase64(const std::string& bytes) {
  std::string text(4 * (bytes.size() / 3 + 1) + 1, '\0');
  const int length = ::EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                       reinterpret_cast<const unsigned char*>(bytes.data()),
                                       static_cast<int>(bytes.size()));
  return text.substr(0, static_cast<std::size_t>(length));
}

class SandboxBlobTest : public SandboxTest {
 protected:
  static constexpr const char* kControl = "/control/blobs";

  /// The one object of most tests.
  const BlobKey key_{"HR", "employees", {{"id", "1"}, {"branch", "north"}}};

  void put(std::uint64_t size, Mode mode = Mode::kKnownTotal, const std::string& logLevel = "") {
    const auto error = server_->putBlob(
        key_, {.generated = GeneratedContent{size, 7}, .mode = mode, .logLevel = logLevel});
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
  const std::string text = R"({"d":{"results":")" + inBase64(all) + R"("}})";
  const std::string error = R"({"d":{"error":true,"msg":"the object cannot be read"}})";
  const struct {
    Mode mode;
    const char* range;
    int status;
    const char* contentRange;
    std::string body;
  } kCases[] = {
      {Mode::kKnownTotal, nullptr, 200, "", all},
      {Mode::kKnownTotal, "0-39", 206, "bytes 0-39/100", all.substr(0, 40)},
      {Mode::kKnownTotal, "99-99", 206, "bytes 99-99/100", all.substr(99)},
      {Mode::kKnownTotal, "61-1000", 206, "bytes 61-99/100", all.substr(61)},
      {Mode::kKnownTotal, "100-199", 416, "bytes */100", ""},
      {Mode::kUnknownTotal, "0-39", 206, "bytes 0-39/*", all.substr(0, 40)},
      {Mode::kUnknownTotal, "80-119", 206, "bytes 80-99/*", all.substr(80)},
      {Mode::kUnknownTotal, "100-139", 206, "bytes */*", ""},
      {Mode::kUnknownTotal, "5000-5039", 206, "bytes */*", ""},
      {Mode::kWhole, "40-79", 200, "", all},
      {Mode::kBase64, "40-79", 200, "", text},
      {Mode::kError, "40-79", 200, "", error},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(json::serialize(json::array{static_cast<int>(c.mode), c.range ? c.range : ""}));
    put(all.size(), c.mode, "debug");
    const auto answer = c.range ? range(c.range) : get();
    ASSERT_TRUE(answer);
    EXPECT_EQ(answer->status, c.status);
    EXPECT_EQ(answer->get_header_value("Content-Range"), c.contentRange);
    EXPECT_EQ(answer->body, c.body);
    EXPECT_EQ(answer->get_header_value("X-Pelmar-Device-Log-Level"), "debug");
    if (c.body == text || c.body == error) {
      EXPECT_EQ(answer->get_header_value("Content-Type"), kJson);
    } else {
      EXPECT_THAT(answer->get_header_value("ETag"), testing::MatchesRegex("\".+\""));
    }
  }
}

// Large enough for several pieces on every path, and of a length that no block divides.
TEST_F(SandboxBlobTest, ContentIsTheSameInPartsAsAWholeAndInText) {
  const std::string all = generated(7, 3'000'001);
  put(all.size());
  EXPECT_TRUE(get()->body == all);
  std::string parts;
  while (parts.size() < all.size()) {
    const std::size_t begin = parts.size();
    parts += range(std::to_string(begin) + "-" + std::to_string(begin + 777'776))->body;
    ASSERT_GT(parts.size(), begin);
  }
  EXPECT_TRUE(parts == all);
  put(all.size(), Mode::kBase64);
  EXPECT_TRUE(get()->body == R"({"d":{"results":")" + inBase64(all) + R"("}})");
}

TEST_F(SandboxBlobTest, ObjectsAreKnownByScopeNameAndKeysInAnyOrder) {
  put(10);
  const auto firstTag = get()->get_header_value("ETag");
  EXPECT_EQ(get({}, "branch=north&id=1&type=bytes")->status, 200);
  EXPECT_EQ(get({}, "id=1&type=bytes&branch=north")->status, 404) << "not a key behind the type";
  EXPECT_EQ(get({}, "id=2&branch=north&type=bytes")->status, 404);
  EXPECT_EQ(get({}, "id=1&branch=north")->status, 400);
  put(11);
  EXPECT_NE(get()->get_header_value("ETag"), firstTag);

  auto http = client();
  const std::string stored = std::string(kControl) + "/HR/employees?branch=north&id=1";
  EXPECT_EQ(opstatus(http.Put(stored, "a photo", kOctets)), 0);
  restart({});
  EXPECT_EQ(get()->body, "a photo") << "objects outlive the server";
  const auto storedTag = get()->get_header_value("ETag");
  EXPECT_EQ(opstatus(client().Put(stored, "another", kOctets)), 0);
  EXPECT_NE(get()->get_header_value("ETag"), storedTag);

  const json::object change{{"scope", "HR"},
                            {"object", "employees"},
                            {"keys", {{"id", 1}, {"branch", "north"}}},
                            {"mode", "unknown"}};
  EXPECT_EQ(opstatus(client().Post(kControl, json::serialize(change), kJson)), 0);
  EXPECT_EQ(range("3-4")->get_header_value("Content-Range"), "bytes 3-4/*");
  EXPECT_EQ(range("3-4")->body, "th");
  EXPECT_EQ(opstatus(client().Delete(kControl)), 0);
  EXPECT_EQ(get()->status, 404);
  EXPECT_TRUE(std::filesystem::is_empty(directory_ + "/blobs"));

  for (const char* bad : {"", "[]", R"({"scope":"HR","object":"employees"})",
                          R"({"scope":"HR","object":"e","keys":{"id":null},"size":1})",
                          R"({"scope":"HR","object":"e","keys":{},"seed":1})",
                          R"({"scope":"HR","object":"e","keys":{},"size":-1})",
                          R"({"scope":"HR","object":"e","keys":{},"size":18446744073709551615})",
                          R"({"scope":"HR","object":"e","keys":{},"mode":"other"})",
                          R"({"scope":"HR","object":"e","keys":{},"typo":1})"}) {
    EXPECT_EQ(client().Post(kControl, bad, kJson)->status, 400) << bad;
  }
}

}  // namespace
}  // namespace varo::sandbox
