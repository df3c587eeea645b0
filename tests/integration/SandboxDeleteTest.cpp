#include "tests/support/SandboxFixture.h"

#include <chrono>
#include <thread>

namespace varo::sandbox {
namespace {

namespace json = boost::json;
using testing::ElementsAreArray;

/// What a client reads in an answer to a poll, in one line.
std::string told(const httplib::Result& result) {
  const json::object answer = object(result);
  if (const json::value* status = answer.if_contains("poll_status")) {
    return json::serialize(*status);
  }
  const std::string http = result ? std::to_string(result->status) + " " : "";
  if (!answer.contains("opstatus")) return http + result->body;
  return http + json::serialize(answer.at("opstatus"));
}

class SandboxDeleteTest : public SandboxTest {
 protected:
  httplib::Result erase(const std::string& filter) {
    return client().Delete(files_ + "?$filter=" + percentEncoded(filter));
  }
  httplib::Result eraseId(const std::string& id) { return erase("file_id eq '" + id + "'"); }

  /// Polls the way a client does: behind "services" of the URL that it knows.
  httplib::Result poll(const json::object& accepted) {
    const json::value* fragment = accepted.if_contains("poll_api");
    if (fragment == nullptr) {
      ADD_FAILURE() << json::serialize(accepted);
      return client().Get("/");
    }
    return client().Get("/services" + std::string(fragment->as_string()));
  }

  [[nodiscard]] bool bytesAreGone() const {
    return std::filesystem::is_empty(directory_ + "/files") &&
           std::filesystem::is_empty(directory_ + "/objects");
  }
};

TEST_F(SandboxDeleteTest, EveryKindTellsItsPollsWhatItShouldAndRemovesTheFileInTime) {
  const std::string kReason = "the delete failed, as was asked for";
  const std::string yes = R"("true")";
  const std::string no = R"("false")";
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
    ASSERT_TRUE(answer);
    ASSERT_EQ(opstatus(answer), 0) << answer->body;
    EXPECT_EQ(answer->status, 202);
    EXPECT_EQ(object(answer).at("httpStatusCode"), answer->status);
    std::vector<std::string> polls;
    while (polls.size() < c.polls.size()) {
      if (polls.empty() || polls.back() == yes) {
        EXPECT_FALSE(list().empty()) << "gone too early";
      }
      polls.push_back(told(poll(object(answer))));
    }
    EXPECT_THAT(polls, ElementsAreArray(c.polls));
    EXPECT_EQ(list().empty(), c.gone);
    EXPECT_EQ(bytesAreGone(), c.gone);
    if (!c.gone) {
      client().Put(files_, json::serialize(json::object{{"file_id", id}, {"sandbox_delete", {}}}),
                   kJson);
      EXPECT_EQ(eraseId(id)->status, 200) << "the wish was taken back";
    }
  }
}

TEST_F(SandboxDeleteTest, CriteriaSelectCommittedFilesAndTheOldestWishDecides) {
  for (const char* name : {"a", "it's", "c"}) {
    json::object metadata{{"file_name", name}, {"type", "old"}};
    if (*name != 'a') metadata["sandbox_delete"] = {{"mode", *name == 'i' ? "accepted" : "never"}};
    storedFile("x", metadata);
  }
  const std::string other = storedFile("keep", {{"file_name", "a"}, {"type", "new"}});
  const Upload open = create({{"file_name", "open"}, {"type", "old"}});
  sendBytes(open, "abc");

  const auto accepted = object(erase("type eq 'old'"));
  EXPECT_EQ(told(poll(accepted)), R"("true")");
  const std::string late = storedFile("late", {{"file_name", "late"}, {"type", "old"}});
  EXPECT_EQ(opstatus(erase("type eq 'old' and file_name eq 'it's'")), 0) << "accepted as well";
  EXPECT_EQ(object(poll(accepted)).at("files_deleted"), 3);
  EXPECT_EQ(list().size(), 2u) << "what came after the delete stays";
  EXPECT_EQ(client().Get(bytesPath(other))->body, "keep");
  EXPECT_EQ(client().Get(bytesPath(late))->body, "late");
  EXPECT_EQ(opstatus(commit(open.id)), 0) << "the upload goes on";
}

TEST_F(SandboxDeleteTest, WhatMakesNoSenseIsRefusedWithItsReason) {
  const std::string id = storedFile("x");
  create({{"file_name", "open"}});
  const struct {
    std::string path;
    int opstatus;
  } kCases[] = {
      {files_ + "?$filter=%20", 8002},
      {files_ + "?$filter=a%20ne%20'b'", 8003},
      {files_ + "?$filter=file_id%20eq%20'nobody'", 8015},
      {files_ + "?$filter=file_name%20eq%20'open'", 8015},
      {files_ + "?$filter=file_id%20eq%20'" + id + "'%20and%20file_name%20eq%20'b'", 8015},
      {files_ + "?$filter=" + percentEncoded("file_id eq 'x' OR '1'='1'"), 8015},
  };
  for (const auto& c : kCases) EXPECT_EQ(opstatus(client().Delete(c.path)), c.opstatus) << c.path;
  EXPECT_EQ(opstatus(client().Get(base_.path + "/operations?type=delete&operation_id=1")), 8017);
  for (const char* wish : {"later", R"({"mode":1})", R"({"polls":1.5})", R"({"status":200})",
                           R"({"opstatus":2147483648})", R"({"mode":"now","until":1})"}) {
    json::object body{{"file_name", "a"}, {"file_id", id}, {"sandbox_delete", wish}};
    EXPECT_EQ(opstatus(client().Post(files_, json::serialize(body), kJson)), 8002) << wish;
    EXPECT_EQ(opstatus(client().Put(files_, json::serialize(body), kJson)), 8002) << wish;
  }
  EXPECT_EQ(client().Get(bytesPath(id))->body, "x");
}

// The bytes are being written while their file is deleted: nobody may keep them.
TEST_F(SandboxDeleteTest, AnUploadIsGivenUpWhileItsBytesArrive) {
  for (const char* domain : {"service", "store"}) {
    SCOPED_TRACE(domain);
    const Upload upload = create({{"file_name", "a"}, {"sandbox_template", {{"domain", domain}}}});
    const std::string part = sampleBytes(100'000);
    const auto send = [&](std::size_t offset, std::size_t, httplib::DataSink& sink) {
      if (offset == 0) return sink.write(part.data(), part.size());
      const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
      while (bytesAreGone() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      EXPECT_FALSE(bytesAreGone());
      EXPECT_EQ(opstatus(eraseId(upload.id)), 0);
      return sink.write(part.data(), part.size());
    };
    const Address address = split(upload.url);
    ASSERT_TRUE(httplib::Client(address.origin).Put(address.path, 2 * part.size(), send, kOctets));
    EXPECT_TRUE(bytesAreGone());
    EXPECT_EQ(opstatus(commit(upload.id)), 8004);
    EXPECT_EQ(opstatus(eraseId(upload.id)), 8015);
  }
}

}  // namespace
}  // namespace varo::sandbox
