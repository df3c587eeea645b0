#include "Sandbox/ExampleDatabase.h"
#include "Sandbox/GeneratedBytes.h"
#include "tests/support/SandboxFixture.h"

#include <SQLiteCpp/Database.h>
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

/// What came of a ranged request, in one line: status, Content-Range, and where its bytes are from.
std::string seen(const httplib::Result& answer, const std::string& all) {
  if (!answer) return "no answer";
  const std::size_t from = all.find(answer->body);
  std::string line = std::to_string(answer->status);
  for (const char* name : {"Content-Range", "ETag"}) {
    if (answer->has_header(name)) line += "|" + answer->get_header_value(name);
  }
  if (answer->body.empty()) return line + "|nothing";
  if (from == std::string::npos) return line + "|" + answer->body;
  return line + "|" + std::to_string(from) + "+" + std::to_string(answer->body.size());
}

TEST_F(SandboxBlobTest, FaultsHitTheRangesTheyAreMeantFor) {
  const std::string tag = R"(|"7-64"|)";
  const std::string first = "206|bytes 0-39/100" + tag + "0+40";
  const std::string second = "206|bytes 40-79/100" + tag + "40+40";
  const std::string third = "206|bytes 80-99/100" + tag + "80+20";
  const struct {
    const char* action;
    std::string second;  ///< What the second range is answered.
  } kCases[] = {
      {R"({"shiftRange":10})", "206|bytes 50-89/100" + tag + "50+40"},
      {R"({"shiftRange":-50})", "206|bytes 0-29/100" + tag + "0+30"},
      {R"({"shiftRange":-9223372036854775808})", "206|bytes 0-0/100" + tag + "0+1"},
      {R"({"shiftRange":9223372036854775807})", "416|bytes */100" + tag + "nothing"},
      {R"({"shortenRange":7})", "206|bytes 40-46/100" + tag + "40+7"},
      {R"({"shortenRange":1000})", second},
      {R"({"ignoreRange":true})", "200" + tag + "0+100"},
      {R"({"total":101})", "206|bytes 40-79/101" + tag + "40+40"},
      {R"({"total":"*"})", "206|bytes 40-79/*" + tag + "40+40"},
      {R"({"total":"9223372036854775808, 5"})",
       "206|bytes 40-79/9223372036854775808, 5" + tag + "40+40"},
      {R"({"headers":{"content-range":null}})", "206" + tag + "40+40"},
      {R"({"headers":{"Content-Range":"bytes 1-"}})", "206|bytes 1-" + tag + "40+40"},
      {R"({"headers":{"ETag":"\"new\""}})", R"(206|bytes 40-79/100|"new"|40+40)"},
      {R"({"status":416,"headers":{"Content-Range":"bytes */40"}})", "416|bytes */40|nothing"},
      {R"({"status":206,"noBody":true,"headers":{"Content-Range":"bytes 40-39/100"}})",
       "206|bytes 40-39/100|nothing"},
      {R"({"status":503,"body":"down"})", "503|down"},
      {R"({"opstatus":5,"errmsg":"e"})", R"(200|{"opstatus":5,"errmsg":"e"})"},
      {R"({"cutAfter":10})", "no answer"},
      {R"({"drop":true})", "no answer"},
  };
  const std::string all = generated(7, 100);
  put(all.size());
  const auto inject = [&](const std::string& match, const std::string& action) {
    server_->clearFaults();
    EXPECT_EQ(
        opstatus(client().Post("/control/faults",
                               R"({"match":)" + match + R"(,"action":)" + action + "}", kJson)),
        0)
        << action;
  };
  for (const auto& c : kCases) {
    inject(R"({"ranged":true,"query":"id=1&","skip":1,"count":1})", c.action);
    EXPECT_EQ(seen(get(), all), "200" + tag + "0+100") << "no range, not counted";
    EXPECT_EQ(seen(range("0-39"), all), first) << c.action;
    EXPECT_EQ(seen(range("40-79"), all), c.second) << c.action;
    EXPECT_EQ(seen(range("80-119"), all), third) << c.action;
  }
  std::vector<std::string> asked;
  for (const LoggedRequest& request : server_->requests()) {
    if (const std::string* value = request.header("range")) asked.push_back(*value);
  }
  ASSERT_EQ(asked.size(), 3 * std::size(kCases));
  EXPECT_EQ(asked[1], "bytes=40-79") << "what was sent, not what the service saw";

  inject(R"({"ranged":true,"perTarget":true,"skip":1})", R"({"total":7})");
  const auto other = [&] {
    return get({{"Range", "bytes=0-9"}}, "branch=north&id=1&type=bytes")
        ->get_header_value("Content-Range");
  };
  for (const char* total : {"100", "7", "7"}) {
    EXPECT_EQ(range("0-9")->get_header_value("Content-Range"), std::string("bytes 0-9/") + total);
    EXPECT_EQ(other(), std::string("bytes 0-9/") + total) << "has a count of its own";
  }
  for (const char* bad : {R"({"shortenRange":0})", R"({"shiftRange":1.5})", R"({"total":true})",
                          R"({"someRange":1})", R"({"headers":{"a":1}})"}) {
    const std::string rule = R"({"action":)" + std::string(bad) + "}";
    EXPECT_EQ(client().Post("/control/faults", rule, kJson)->status, 400) << bad;
  }
}

TEST_F(SandboxBlobTest, ExampleDatabaseHasRecordsWhosePhotosAreServed) {
  const std::string path = directory_ + "/new/staff.db";
  const auto make = [&] {
    const auto error = ExampleDatabase::make(path, *server_);
    return error ? error->message : "";
  };
  ASSERT_EQ(make(), "");
  SQLite::Database database(path, SQLite::OPEN_READWRITE);
  const auto text = [&](const char* sql) { return database.execAndGet(sql).getString(); };
  EXPECT_EQ(text("SELECT group_concat(coalesce(blobref_photo, 'none')) FROM employees"),
            "none,NULL,none,NULL,none,NULL,none");
  EXPECT_EQ(text("SELECT group_concat(typeof(blobref_photo)) FROM employees WHERE id < 3"),
            "null,text");
  EXPECT_EQ(text("SELECT name FROM employees WHERE id = '1'"), "Ann Archer");
  database.exec(
      "INSERT INTO varosyncBLOBSTOREMANAGER (localPath, tableName, columnName, type, "
      "state, status, retry, size) VALUES ('', 'employees', 'photo', 'Binary', 101, 0, "
      "3, NULL); UPDATE employees SET blobref_photo = '1' WHERE id = 1");
  EXPECT_EQ(make(), "") << "made before";
  EXPECT_EQ(text("SELECT blobref_photo FROM employees WHERE id = 1"), "1") << "and left as it was";
  database.exec(
      "DELETE FROM varosyncBLOBSTOREMANAGER; INSERT INTO varosyncBLOBSTOREMANAGER "
      "(state) VALUES (101)");
  EXPECT_EQ(text("SELECT id FROM varosyncBLOBSTOREMANAGER"), "2") << "an id is never used again";

  std::vector<std::string> answers;
  for (const ExampleEmployee& employee : ExampleDatabase::employees()) {
    const std::string id = std::to_string(employee.id);
    const auto answer = client().Get(
        split(server_->blobUrl()).path + "HR/employees/binary?id=" + id + "&type=bytes",
        {{"Range", "bytes=0-99"}});
    ASSERT_TRUE(answer);
    answers.push_back(std::to_string(answer->status) + answer->get_header_value("Content-Range"));
    if (answer->status == 206) {
      EXPECT_EQ(answer->body, generated(employee.photo.seed, 100)) << id;
    }
  }
  EXPECT_THAT(answers, testing::ElementsAre("206bytes 0-99/300000", "206bytes 0-99/2500000",
                                            "206bytes 0-99/67108864", "206bytes 0-99/*", "200",
                                            "200", "200"));

  database.exec("DROP TABLE employees");
  EXPECT_THAT(make(), testing::HasSubstr("another database"));
  EXPECT_THAT(ExampleDatabase::make(directory_).value_or(""), testing::HasSubstr("cannot make"));
}

}  // namespace
}  // namespace varo::sandbox
