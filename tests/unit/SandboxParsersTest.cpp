#include "Sandbox/AcceptedDeletes.h"
#include "Sandbox/ByteRange.h"
#include "Sandbox/DeleteJson.h"
#include "Sandbox/FilterParser.h"
#include "Sandbox/HttpRequest.h"
#include "Sandbox/JsonText.h"
#include "Sandbox/MultipartReader.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varo::sandbox {
namespace {

TEST(SandboxFilter, ReadsWhatClientsSend) {
  const struct {
    std::string_view text;
    Filter filter;
  } kCases[] = {
      {"", {}},
      {"name  EQ  'a'  AND\ttype eq'b' ", {{"name", "a"}, {"type", "b"}}},
      {"size eq 42 and hot eq true", {{"size", "42"}, {"hot", "true"}}},
      {"name eq 'it's'", {{"name", "it's"}}},
      {"name eq 'it''s'", {{"name", "it's"}}},
      {"name eq 'a'''", {{"name", "a'"}}},
      {"name eq 'rock 'n' and roll'", {{"name", "rock 'n' and roll"}}},
      {"name eq 'x' and type eq ''", {{"name", "x"}, {"type", ""}}},
  };
  for (const auto& c : kCases) {
    const auto parsed = parseFilter(c.text);
    const auto* filter = std::get_if<Filter>(&parsed);
    ASSERT_NE(filter, nullptr) << c.text << ": " << std::get<FilterProblem>(parsed).reason;
    EXPECT_EQ(*filter, c.filter) << c.text;
  }
}

TEST(SandboxFilter, RefusesWhatItCannotServe) {
  std::string tooMany = "a eq 'b'";
  for (int i = 0; i < 100; ++i) tooMany += " and a eq 'b'";
  const std::string kCases[] = {"name eq",
                                "name eq 'open",
                                "name ne 'a'",
                                "name eq 'a' or b eq 'c'",
                                "eq 'a'",
                                "name eq 'a' and",
                                "(name eq 'a')",
                                "'",
                                "name eq 'a' type eq 'b",
                                tooMany,
                                std::string(60'000, '\''),
                                std::string(60'000, '(')};
  for (const std::string& text : kCases) {
    EXPECT_TRUE(std::holds_alternative<FilterProblem>(parseFilter(text))) << text.substr(0, 60);
  }
}

TEST(SandboxByteRange, FollowsTheStandard) {
  using Kind = ByteRange::Kind;
  constexpr auto kMax = std::numeric_limits<std::uint64_t>::max();
  const ByteRange whole{Kind::kWhole, 0, 100};
  const ByteRange none{Kind::kUnsatisfiable, 0, 0};
  const struct {
    std::string text;
    ByteRange range;
  } kCases[] = {
      {"", whole},
      {"bytes=0-0", {Kind::kPart, 0, 1}},
      {"Bytes=90-1000", {Kind::kPart, 90, 10}},
      {"bytes=-500", {Kind::kPart, 0, 100}},
      {"bytes=99-" + std::to_string(kMax) + "0", {Kind::kPart, 99, 1}},
      {"bytes=100-", none},
      {"bytes=" + std::to_string(kMax) + "-", none},
      {"bytes=-0", none},
      {"bytes=20-10", whole},
      {"bytes=1-2,5-6", whole},
      {"bytes=-", whole},
      {"bytes=--5", whole},
      {"bytes=+1-2", whole},
      {"bytes= 1-2", whole},
      {"items=0-5", whole},
  };
  for (const auto& c : kCases) EXPECT_EQ(parseByteRange(c.text, 100), c.range) << c.text;
  EXPECT_EQ(parseByteRange("bytes=0-", 0), none);
}

TEST(SandboxRequestHead, RefusesWhatTwoReadersCouldReadDifferently) {
  const struct {
    std::string head;
    int status;
  } kCases[] = {
      {"\r\n", 400},
      {"GET / HTTP/2\r\n\r\n", 505},
      {"GET  / HTTP/1.1\r\n\r\n", 400},
      {"G\x01T / HTTP/1.1\r\n\r\n", 400},
      {"GET /" + std::string(5000, 'a') + " HTTP/1.1\r\n\r\n", 414},
      {"GET / HTTP/1.1\r\nA: b\r\n folded\r\n\r\n", 400},
      {"GET / HTTP/1.1\r\nA : b\r\n\r\n", 400},
      {"GET / HTTP/1.1\r\nA: b\nC: d\r\n\r\n", 400},
      {"PUT / HTTP/1.1\r\nContent-Length: -1\r\n\r\n", 400},
      {"PUT / HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n", 400},
      {"PUT / HTTP/1.1\r\nContent-Length: 1\r\nContent-Length: 2\r\n\r\n", 400},
      {"PUT / HTTP/1.1\r\nContent-Length: 1\r\nTransfer-Encoding: chunked\r\n\r\n", 400},
      {"PUT / HTTP/1.1\r\nTransfer-Encoding: gzip\r\n\r\n", 501},
      {"PUT / HTTP/1.1\r\nContent-Encoding: gzip\r\n\r\n", 415},
  };
  for (const auto& c : kCases) {
    const auto parsed = parseRequestHead(c.head);
    const auto* bad = std::get_if<BadRequest>(&parsed);
    ASSERT_NE(bad, nullptr) << c.head.substr(0, 80);
    EXPECT_EQ(bad->status, c.status) << c.head.substr(0, 80);
  }
}

std::string readMultipart(std::string_view body, std::size_t pieceSize, bool& complete) {
  std::string content;
  MultipartReader reader("b", [&](std::string_view bytes) {
    content += bytes;
    return true;
  });
  bool accepted = true;
  while (accepted && !body.empty()) {
    accepted = reader.push(body.substr(0, pieceSize));
    body.remove_prefix(std::min(pieceSize, body.size()));
  }
  complete = accepted && reader.complete();
  return content;
}

TEST(SandboxMultipart, PassesOnTheContentHoweverThePiecesFall) {
  const std::string kContents[] = {
      "", "hello", "\r\n", "\r\n--", "\r\n--a\r\n--b", "--b--", std::string("\0\r\n\r\n-\r\n-", 9)};
  for (const std::string& content : kContents) {
    const std::string body =
        "--b\r\nContent-Type: application/octet-stream\r\n"
        "Content-Disposition: form-data; name=\"data\"; filename=\"x\"\r\n\r\n" +
        content + "\r\n--b--\r\nepilogue";
    // A content that ends in a delimiter is shorter for every reader.
    const std::string expected = content.substr(0, content.find("\r\n--b"));
    for (const std::size_t pieceSize :
         {std::size_t{1}, std::size_t{2}, std::size_t{7}, body.size()}) {
      bool complete = false;
      EXPECT_EQ(readMultipart(body, pieceSize, complete), expected);
      EXPECT_EQ(complete, expected == content) << pieceSize;
    }
  }
}

TEST(SandboxMultipart, RefusesWhatIsNotOnePart) {
  const std::string kCases[] = {"",
                                "hello",
                                "--b",
                                "--b\r\nA: b\r\n\r\nno end",
                                "--c\r\n\r\n\r\nx\r\n--c--",
                                "--b\r\n\r\none\r\n--b\r\n\r\ntwo\r\n--b--",
                                "--bA: b\r\n\r\nx\r\n--b--",
                                "--b\r\n" + std::string(100'000, 'h')};
  for (const std::string& body : kCases) {
    bool complete = true;
    static_cast<void>(readMultipart(body, 4096, complete));
    EXPECT_FALSE(complete) << body.substr(0, 40);
  }
  EXPECT_EQ(multipartBoundary("multipart/form-data; boundary=\"a b\"; x=y"), "a b");
  EXPECT_EQ(multipartBoundary("multipart/form-data; boundary=" + std::string(71, 'x')), "");
  EXPECT_EQ(multipartBoundary("application/octet-stream; boundary=x"), "");
}

TEST(SandboxDeleteKind, RefusesWhatIsOutOfRange) {
  for (const char* wish :
       {R"({"polls":1000001})", R"({"polls":1.5})", R"({"polls":18446744073709551615})",
        R"({"status":200})", R"({"status":600})", R"({"opstatus":2147483648})",
        R"({"mode":"now","until":1})"}) {
    EXPECT_EQ(deleteKindFrom(parseJsonObject(wish).value(), {}), std::nullopt) << wish;
  }
}

TEST(SandboxAcceptedDeletes, ForgetsTheOldestWhereThereAreTooManyDeletesOrFiles) {
  AcceptedDeletes deletes({.deletes = 3, .files = 10});
  std::vector<std::string> names;
  for (int i = 0; i < 4; ++i) {
    names.push_back(deletes.add({.mode = DeleteKind::Mode::kNever}, {"a"}));
  }
  EXPECT_FALSE(deletes.poll(names[0]).has_value());
  EXPECT_TRUE(deletes.poll(names[1]).has_value());

  const DeleteKind soon{.mode = DeleteKind::Mode::kAccepted, .polls = 0};
  const std::vector<std::string> many(9, "b");
  const std::string first = deletes.add(soon, many);
  EXPECT_FALSE(deletes.poll(names[2]).has_value());
  EXPECT_TRUE(deletes.poll(names[3]).has_value());
  deletes.finish(first);
  const std::string second = deletes.add(soon, many);
  EXPECT_EQ(deletes.poll(first)->files, nullptr) << "finished, it holds no files any more";
  EXPECT_EQ(deletes.poll(first)->fileCount, many.size());
  const std::string third = deletes.add(soon, std::vector<std::string>(20, "c"));
  EXPECT_FALSE(deletes.poll(second).has_value());
  EXPECT_EQ(deletes.poll(third)->files->size(), 20u) << "the new one stays in any case";
}

}  // namespace
}  // namespace varo::sandbox
