#include "tests/support/Await.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/SandboxFixture.h"

#include <SQLiteCpp/Database.h>

#include <algorithm>
#include <set>
#include <thread>

// The signed store beside a client of others' making, botocore.

namespace varo::sandbox {
namespace {

namespace json = boost::json;

constexpr int kNoBotocore = 77;      // the script's own
constexpr int kNoInterpreter = 127;  // of `env`

class SignedStoreTest : public SandboxTest {
 protected:
  /// What the calls have returned; absent where there is no botocore.
  std::optional<json::array> run(const json::array& calls) {
    const json::object options{{"endpoint_url", server_->storeUrl()},
                               {"aws_access_key_id", "sandbox"},
                               {"aws_secret_access_key", "sandbox-secret-key"}};
    // The distribution's interpreter: another one on the path may have another botocore, or none.
    test::ChildProcess botocore(
        {.program = "/usr/bin/python3",
         .arguments = {"-I", "-B", VARO_BOTOCORE_STORE_SCRIPT},
         .environment = {},
         .directory = directory_,
         .input = json::serialize(json::object{{"options", options}, {"calls", calls}})});
    const int status = botocore.wait();
    if (status == kNoBotocore || status == kNoInterpreter) return std::nullopt;
    EXPECT_EQ(status, 0) << botocore.errors();
    json::error_code error;
    const json::value answer = json::parse(botocore.output(), error);
    return answer.is_array() ? answer.get_array() : json::array(calls.size());
  }

  /// Stores an object through the service, which asks for no signature.
  void put(const std::string& key, const std::string& bytes) {
    const auto answer = ask("PUT", "/services/online/objects/" + percentEncode(key), bytes);
    EXPECT_EQ(answer.status, 200) << key << answer.body;
  }
};

json::object call(const char* name, const json::object& arguments) {
  return {{"call", name}, {"with", arguments}};
}

std::string textIn(const json::value& answer, const char* key) {
  const json::value* value = answer.is_object() ? answer.get_object().if_contains(key) : nullptr;
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : "";
}

/// The texts under `key` of all entries of the list `list`.
std::vector<std::string> column(const json::value& answer, const char* list, const char* key) {
  std::vector<std::string> texts;
  const json::value* entries = answer.get_object().if_contains(list);
  if (entries == nullptr) return texts;
  for (const json::value& entry : entries->as_array()) texts.push_back(textIn(entry, key));
  return texts;
}

const std::vector<std::string> kKeys = {
    "a", "a/", "a/b", "a/b/c", "a/b/d", "a//e", "a-b", "a0", "b+ %&~*'\"<>?#", "b\x01\r\n",
    // In the order of UTF-16 the last one would come before the one in front of it.
    "\xC3\xA4", "\xEF\xBC\xA1", "\xF0\x9F\x98\x80"};

/// What a list without pages has: the keys, and the groups of keys.
struct Listed {
  std::vector<std::string> keys, groups;
  friend bool operator==(const Listed&, const Listed&) = default;
};

Listed expectedList(const std::string& prefix, const std::string& delimiter) {
  std::set<std::string> keys, groups;
  for (const std::string& key : kKeys) {
    if (!key.starts_with(prefix)) continue;
    const std::size_t at =
        delimiter.empty() ? std::string::npos : key.find(delimiter, prefix.size());
    if (at == std::string::npos) {
      keys.insert(key);
    } else {
      groups.insert(key.substr(0, at + delimiter.size()));
    }
  }
  return {{keys.begin(), keys.end()}, {groups.begin(), groups.end()}};
}

TEST_F(SignedStoreTest, ListsHaveEachKeyOfTheBucketOnceWhateverThePages) {
  for (const std::string& key : kKeys) put("bucket/" + key, key);
  for (const char* other : {"bucket", "bucket0/x", "bucket-/x", "bucke/x", "other"})
    put(other, "x");
  struct Case {
    std::string prefix, delimiter;
    int most;
    std::size_t first = 0, pages = 0;
  };
  std::vector<Case> cases;
  for (const char* prefix : {"", "a", "a/", "a/b", "\xF0\x9F\x98\x80", "none"}) {
    for (const char* delimiter : {"", "/", "b", "//"}) {
      for (const int most : {1, 3, 5000}) cases.push_back({prefix, delimiter, most});
    }
  }
  json::array calls;
  for (Case& one : cases) {
    const Listed expected = expectedList(one.prefix, one.delimiter);
    const auto entries = static_cast<int>(expected.keys.size() + expected.groups.size());
    one.first = calls.size();
    one.pages = static_cast<std::size_t>(std::max(1, (entries + one.most - 1) / one.most));
    for (std::size_t page = 0; page < one.pages; ++page) {
      json::object arguments{{"Bucket", "bucket"}, {"Prefix", one.prefix}, {"MaxKeys", one.most}};
      if (!one.delimiter.empty()) arguments["Delimiter"] = one.delimiter;
      if (page > 0) {
        arguments["ContinuationToken"] =
            json::object{{"from", {calls.size() - 1, "NextContinuationToken"}}};
      }
      calls.push_back(call("list_objects_v2", arguments));
    }
  }
  const auto answers = run(calls);
  if (!answers) GTEST_SKIP() << "python3-botocore is not installed";
  for (const Case& one : cases) {
    SCOPED_TRACE(one.prefix + "|" + one.delimiter + "|" + std::to_string(one.most));
    Listed seen;
    std::vector<std::string> ordered;
    for (std::size_t page = 0; page < one.pages; ++page) {
      const json::value& answer = (*answers)[one.first + page];
      const auto keys = column(answer, "Contents", "Key");
      const auto groups = column(answer, "CommonPrefixes", "Prefix");
      EXPECT_EQ(answer.at("IsTruncated"), page + 1 < one.pages) << answer;
      EXPECT_EQ(answer.at("KeyCount"), keys.size() + groups.size());
      seen.keys.insert(seen.keys.end(), keys.begin(), keys.end());
      seen.groups.insert(seen.groups.end(), groups.begin(), groups.end());
    }
    EXPECT_EQ(seen, expectedList(one.prefix, one.delimiter));
  }
}

TEST_F(SignedStoreTest, AnObjectIsListedAsItsHeadTellsIt) {
  restart({.objectStore = {.buckets = {"bucket"}}});
  put("bucket/a b", "hello");
  const json::object object{{"Bucket", "bucket"}, {"Key", "a b"}};
  json::object matched = object, unmatched = object, bad = object;
  matched["IfMatch"] = json::object{{"from", {1, "ETag"}}};
  unmatched["IfMatch"] = "\"other\"";
  const auto answers =
      run({call("list_objects_v2", {{"Bucket", "bucket"}}), call("head_object", object),
           call("get_object", matched), call("get_object", unmatched),
           call("list_objects_v2", {{"Bucket", "bucket"}, {"StartAfter", "a b"}}),
           call("list_objects_v2", {{"Bucket", "bucket"}, {"MaxKeys", 0}}),
           call("list_objects_v2", {{"Bucket", "bucket"}, {"ContinuationToken", "+/made+up"}}),
           call("list_objects", {{"Bucket", "bucket"}}),
           call("list_objects_v2", {{"Bucket", "other"}})});
  if (!answers) GTEST_SKIP() << "python3-botocore is not installed";
  const auto& [list, head] = std::pair((*answers)[0], (*answers)[1]);
  const json::value& entry = list.at("Contents").at(0);
  EXPECT_EQ(entry.at("Size"), 5);
  EXPECT_EQ(head.at("ContentLength"), 5);
  EXPECT_EQ(textIn(entry, "ETag"), textIn(head, "ETag"));
  EXPECT_EQ(textIn(entry, "LastModified"), textIn(head, "LastModified"));
  EXPECT_GT(textIn(entry, "LastModified"), "2020");
  EXPECT_EQ(textIn(head, "request").size(), 32u) << "an id of the request";
  EXPECT_EQ(textIn((*answers)[2], "Body"), "hello");
  EXPECT_EQ((*answers)[3].at("status"), 412);
  EXPECT_EQ((*answers)[4].at("KeyCount"), 0) << "behind the last";
  EXPECT_EQ((*answers)[5].at("IsTruncated"), false) << "none were asked for";
  EXPECT_EQ(textIn((*answers)[6], "error"), "InvalidArgument");
  EXPECT_EQ((*answers)[7].at("status"), 501) << "not the list that was asked for";
  EXPECT_EQ(textIn((*answers)[8], "error"), "NoSuchBucket");
}

TEST_F(SignedStoreTest, WhatAnOlderSandboxHasStoredIsListed) {
  put("bucket/a", "x");
  server_->stop();
  SQLite::Database(directory_ + "/records.sqlite", SQLite::OPEN_READWRITE)
      .exec("ALTER TABLE blobs DROP COLUMN modified");
  restart({.objectStore = {.requiresSignature = false}});
  EXPECT_THAT(httpRequest("GET", server_->storeUrl() + "/bucket/?list-type=2").body,
              testing::HasSubstr("<Key>a</Key><LastModified>1970-01-01T00:00:00.000Z<"));
}

json::object from(std::size_t answer, const char* key) { return {{"from", {answer, key}}}; }

/// Calls on one upload of `kObject`, whose first one has begun it.
const json::object kObject{{"Bucket", "bucket"}, {"Key", "a/b \xC3\xBC"}};

json::object onUpload(json::object more = {}) {
  json::object arguments = kObject;
  arguments["UploadId"] = from(0, "UploadId");
  for (const auto& [key, value] : more) arguments[key] = value;
  return arguments;
}
json::object part(int number, const std::string& bytes) {
  return call("upload_part", onUpload({{"PartNumber", number}, {"Body", bytes}}));
}
/// Parts as numbers and the calls that have sent them.
json::object completion(const std::vector<std::pair<int, std::size_t>>& parts) {
  json::array list;
  for (const auto& [number, sentBy] : parts) {
    list.push_back(json::object{{"PartNumber", number}, {"ETag", from(sentBy, "ETag")}});
  }
  return call("complete_multipart_upload", onUpload({{"MultipartUpload", {{"Parts", list}}}}));
}

class UploadInPartsTest : public SignedStoreTest {
 protected:
  void SetUp() override { restart({.objectStore = {.leastPartBytes = 4}}); }

  /// Bytes on disk.
  std::size_t storedParts() {
    const std::filesystem::directory_iterator all(directory_ + "/parts");
    return static_cast<std::size_t>(std::distance(begin(all), end(all)));
  }
  std::string content() {
    return ask("GET", "/services/online/objects/" + percentEncode("bucket/a/b \xC3\xBC")).body;
  }
};

TEST_F(UploadInPartsTest, TheObjectAppearsInOneStepAndNothingIsLeft) {
  put("bucket/a/b \xC3\xBC", "before");
  const auto answers = run({
      call("create_multipart_upload", kObject),
      part(7, "22222"),
      part(2, "wrong"),
      part(2, "1111"),
      part(9, "unused"),
      part(10'000, "3"),
      call("list_parts", onUpload({{"MaxParts", 2}})),
      call("list_parts", onUpload({{"PartNumberMarker", 7}})),
      call("list_multipart_uploads", {{"Bucket", "bucket"}, {"Prefix", "a/"}}),
      call("get_object", kObject),
      completion({{2, 3}, {7, 1}, {10'000, 5}}),
      call("get_object", kObject),
      call("list_multipart_uploads", {{"Bucket", "bucket"}}),
      completion({{2, 3}, {7, 1}, {10'000, 5}}),
      part(1, "late"),
  });
  if (!answers) GTEST_SKIP() << "python3-botocore is not installed";
  const auto& list = *answers;
  using testing::ElementsAre;
  EXPECT_EQ(column(list[6], "Parts", "ETag"),
            (std::vector{textIn(list[3], "ETag"), textIn(list[1], "ETag")}));
  EXPECT_EQ(list[6].at("IsTruncated"), true);
  EXPECT_EQ(list[6].at("NextPartNumberMarker"), 7);
  EXPECT_EQ(column(list[7], "Parts", "ETag"),
            (std::vector{textIn(list[4], "ETag"), textIn(list[5], "ETag")}));
  EXPECT_EQ(list[7].at("IsTruncated"), false);
  EXPECT_THAT(column(list[8], "Uploads", "UploadId"), ElementsAre(textIn(list[0], "UploadId")));
  EXPECT_THAT(column(list[8], "Uploads", "Key"), ElementsAre("a/b \xC3\xBC"));
  EXPECT_EQ(textIn(list[9], "Body"), "before");
  EXPECT_EQ(textIn(list[10], "Key"), "a/b \xC3\xBC");
  EXPECT_EQ(textIn(list[11], "Body"), "1111222223");
  EXPECT_EQ(textIn(list[11], "ETag"), textIn(list[10], "ETag"));
  EXPECT_THAT(column(list[12], "Uploads", "UploadId"), ElementsAre());
  EXPECT_EQ(textIn(list[13], "error"), "NoSuchUpload");
  EXPECT_EQ(textIn(list[14], "error"), "NoSuchUpload");
  EXPECT_EQ(storedParts(), 0u);
}

TEST_F(UploadInPartsTest, AWrongListOfPartsIsRefusedAndTheUploadCanBeCompletedOrGivenUp) {
  const auto named = [](const json::array& parts) {
    return call("complete_multipart_upload", onUpload({{"MultipartUpload", {{"Parts", parts}}}}));
  };
  const json::array wrongTag{{{"PartNumber", 1}, {"ETag", "\"other\""}}};
  const struct {
    json::object call;
    std::string error;
  } kCases[] = {
      {completion({{2, 2}, {1, 1}}), "InvalidPartOrder"},
      {completion({{1, 1}, {1, 1}}), "InvalidPartOrder"},
      {completion({{1, 1}, {2, 1}}), "InvalidPart"},
      {completion({{1, 1}, {4, 2}}), "InvalidPart"},
      {completion({{1, 1}, {2, 2}, {3, 3}}), "EntityTooSmall"},
      {named(wrongTag), "InvalidPart"},
      {named({}), "MalformedXML"},
      {part(0, "x"), "InvalidArgument"},
      {part(10'001, "x"), "InvalidArgument"},
      {call("upload_part", onUpload({{"Key", "other"}, {"PartNumber", 1}, {"Body", "x"}})),
       "NoSuchUpload"},
  };
  json::array calls{call("create_multipart_upload", kObject), part(1, "1111"), part(2, "222"),
                    part(3, "3333")};
  for (const auto& one : kCases) calls.push_back(one.call);
  calls.push_back(call("get_object", kObject));
  calls.push_back(call("abort_multipart_upload", onUpload()));
  calls.push_back(call("abort_multipart_upload", onUpload()));
  calls.push_back(completion({{1, 1}}));
  const auto answers = run(calls);
  if (!answers) GTEST_SKIP() << "python3-botocore is not installed";
  std::size_t index = 4;
  for (const auto& one : kCases) {
    EXPECT_EQ(textIn((*answers)[index], "error"), one.error) << (*answers)[index] << one.call;
    ++index;
  }
  EXPECT_EQ(textIn((*answers)[index], "error"), "NoSuchKey");
  EXPECT_EQ(textIn((*answers)[index + 1], "error"), "") << "given up";
  EXPECT_EQ(textIn((*answers)[index + 2], "error"), "NoSuchUpload");
  EXPECT_EQ(textIn((*answers)[index + 3], "error"), "NoSuchUpload");
  EXPECT_EQ(storedParts(), 0u);
}

TEST_F(SignedStoreTest, AddressesOfTemporaryKeysNeedTheirSessionToken) {
  restart({.objectStore = {.sessionToken = "to/ken+="}});
  const auto form =
      object(httpRequest("POST", server_->templateUrl(),
                         R"({"objectName":"bucket/b","sandbox_template":{"auth":"presigned"}})"));
  const std::string address(form.at("endpointUrl").as_string());
  EXPECT_EQ(httpRequest("PUT", address, "x").status, 200) << address;
  EXPECT_EQ(
      httpRequest("PUT", address.substr(0, address.find("&X-Amz-Security-Token")), "x").status,
      400);
}

class FaultyUploadTest : public SandboxTest {
 protected:
  void SetUp() override {
    restart({.objectStore = {.requiresSignature = false, .leastPartBytes = 4}});
    const std::string xml = store("POST", "uploads").body;
    const std::size_t begin = xml.find("<UploadId>") + std::string("<UploadId>").size();
    id_ = "uploadId=" + xml.substr(begin, xml.find('<', begin) - begin);
  }

  HttpAnswer store(const std::string& method, const std::string& query,
                   const std::string& body = {}) {
    return httpRequest(method, server_->storeUrl() + "/bucket/a?" + query, body);
  }
  HttpAnswer part(int number, const std::string& body) {
    return store("PUT", "partNumber=" + std::to_string(number) + "&" + id_, body);
  }
  static std::string document(const std::vector<std::pair<int, std::string>>& parts) {
    std::string xml = "<CompleteMultipartUpload>";
    for (const auto& [number, tag] : parts) {
      xml += "<Part><ETag>" + tag + "</ETag><PartNumber>" + std::to_string(number) +
             "</PartNumber></Part>";
    }
    return xml + "</CompleteMultipartUpload>";
  }

  std::string id_;
};

TEST_F(FaultyUploadTest, APartThatBreaksOffIsNoneAndCanBeSentAgain) {
  server_->addFault({.match = {.method = "PUT", .query = "uploadId=", .skip = 1, .count = 1},
                     .action = {.cutRequestAfter = 3}});
  const std::string first = part(1, "1111").header("ETag");
  EXPECT_EQ(part(2, "222222").status, 0);
  EXPECT_TRUE(test::eventually([this] { return server_->requests().size() == 3; }));
  EXPECT_EQ(server_->requests().back().bodyBytes, 3u);
  EXPECT_EQ(store("GET", id_).body.find("<PartNumber>2<"), std::string::npos);
  const std::string second = part(2, "2222").header("ETag");
  // Refused with status 200, as such stores may do after they have begun their response.
  server_->addFault(
      {.match = {.method = "POST", .count = 1},
       .action = {.status = 200, .body = "<Error><Code>InternalError</Code></Error>"}});
  const std::string list = document({{1, first}, {2, second}});
  EXPECT_THAT(store("POST", id_, list).body, testing::HasSubstr("<Error>"));
  EXPECT_EQ(store("GET", "").status, 404);
  EXPECT_THAT(store("POST", id_, list).body, testing::HasSubstr("<ETag>"));
  EXPECT_EQ(store("GET", "").body, "11112222");
}

TEST_F(FaultyUploadTest, AnUploadThatIsGivenUpTakesNoPartThatWasOnItsWay) {
  const struct {
    FaultAction action;
    int status;
  } kCases[] = {{{.latency = std::chrono::milliseconds(-1)}, 404},
                {{.delay = std::chrono::milliseconds(-1)}, 200}};
  for (const auto& one : kCases) {
    SetUp();
    server_->clearFaults();
    server_->addFault({.match = {.method = "PUT"}, .action = one.action});
    HttpAnswer late;
    std::thread sender([&] { late = part(1, "1111"); });
    EXPECT_TRUE(test::eventually([this] { return server_->heldRequests() == 1; }));
    EXPECT_EQ(store("DELETE", id_).status, 204);
    server_->clearFaults();
    sender.join();
    EXPECT_EQ(late.status, one.status) << "before or after its part was stored";
    EXPECT_TRUE(std::filesystem::is_empty(directory_ + "/parts"));
  }
}

TEST_F(FaultyUploadTest, AStopReleasesWhoeverIsHeld) {
  server_->addFault({.action = {.latency = std::chrono::milliseconds(-1)}});
  std::thread sender([&] { static_cast<void>(part(1, "1111")); });
  EXPECT_TRUE(test::eventually([this] { return server_->heldRequests() == 1; }));
  server_->stop();
  sender.join();
  EXPECT_EQ(server_->heldRequests(), 0u);
}

TEST_F(FaultyUploadTest, HostileListsOfPartsAreRefused) {
  const std::string tag = part(1, "1111").header("ETag");
  const std::string good = document({{1, tag}});
  std::string nested;
  for (int i = 0; i < 100'000; ++i) nested += "<Part>";
  const std::string kCases[] = {
      "",
      "no document",
      good.substr(0, good.size() - 1),
      good + good,
      "<CompleteMultipartUpload/>",
      "<Other>" + good + "</Other>",
      "<!DOCTYPE x [<!ENTITY e 'e'>]>" + good,
      document({{0, tag}}),
      document({{1, ""}}),
      document({{10'001, tag}}),
      document({{1, std::string(100'000, 'x')}}),
      "<CompleteMultipartUpload>" + nested,
      "<CompleteMultipartUpload>" + std::string(5'000'000, ' '),
      "<" + std::string(5'000'000, 'a'),
  };
  for (const std::string& body : kCases) {
    EXPECT_THAT(store("POST", id_, body).body, testing::HasSubstr("<Code>MalformedXML</Code>"))
        << body.substr(0, 100);
  }
  EXPECT_THAT(store("POST", id_, good).body, testing::HasSubstr("<ETag>")) << "and harmed nothing";
}

}  // namespace
}  // namespace varo::sandbox
