#include "Platform/Foundation/Error.h"
#include "Platform/Network/HttpTransportError.h"
#include "Platform/Network/MultipartEncoder.h"
#include "Platform/Network/RequestEncoder.h"
#include "Platform/Network/UrlEncoding.h"

#include <gmock/gmock.h>

namespace varo::platform {
namespace {

std::string joined(const std::vector<Data>& pieces) {
  std::string bytes;
  for (const Data& piece : pieces) bytes += piece.readAll(1U << 20U).value();
  return bytes;
}

TEST(UrlEncodingTest, AppendsParametersBeforeTheFragment) {
  const Dictionary two{{"$filter", "a eq 'b'"}, {"n", 7}};
  struct {
    const char* url;
    Dictionary parameters;
    const char* expected;
  } const cases[] = {
      {"http://h/p", two, "http://h/p?$filter=a%20eq%20%27b%27&n=7"},
      {"http://h/p?x=1#f?g", two, "http://h/p?x=1&$filter=a%20eq%20%27b%27&n=7#f?g"},
      {"http://h/p#f?g", {{"a", true}}, "http://h/p?a=true#f?g"},
      {"http://h/p?", {{"a", "1"}}, "http://h/p?a=1"},
      {"http://h/p", {{"a", nullptr}, {"b", ""}}, "http://h/p?b="},
      {"http://h/p", {{"a&b=c", "\xc3\xa4/?#+~$"}}, "http://h/p?a%26b%3Dc=%C3%A4%2F%3F%23%2B~%24"},
      {"", {{"a", "1"}}, "?a=1"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(appendQuery(item.url, item.parameters), item.expected) << item.url;
  }
}

Dictionary parts(std::vector<Value> list) { return {{"parts", Array(std::move(list))}}; }

TEST(MultipartEncoderTest, WritesPartsInOrderWithoutCopyingContents) {
  const Data content = Data::fromBytes("bytes");
  const Dictionary description =
      parts({Array{Dictionary{{"Content-Type", "a/b"}}, Dictionary{{"partContent", content}},
                   Dictionary{{"Content-Disposition", "form-data; name=\"data\"; filename=\"x\""}}},
             Array{Dictionary{{"partContent", ""}}}});
  const auto body = encodeMultipart(description, [] { return "form"; });
  ASSERT_FALSE(body) << "the boundary occurs in a header";
  int calls = 0;
  const auto second = encodeMultipart(description, [&] { return ++calls == 1 ? "form" : "XyZ"; });
  ASSERT_TRUE(second);
  EXPECT_EQ(second->contentType, "multipart/form-data; boundary=XyZ");
  EXPECT_EQ(joined(second->pieces),
            "--XyZ\r\nContent-Type: a/b\r\n"
            "Content-Disposition: form-data; name=\"data\"; filename=\"x\"\r\n\r\nbytes\r\n"
            "--XyZ\r\n\r\n\r\n--XyZ--\r\n");
  EXPECT_EQ(second->pieces[1].memory()->data(), content.memory()->data());
}

TEST(MultipartEncoderTest, RefusesWhatIsNoDescription) {
  const Value content = Dictionary{{"partContent", "x"}};
  const auto part = [&content](const char* name, std::string value) {
    return parts({Array{content, Dictionary{{name, std::move(value)}}}});
  };
  const std::int64_t body = static_cast<std::int64_t>(HttpTransportError::kInvalidBody);
  const std::int64_t header = static_cast<std::int64_t>(HttpTransportError::kInvalidHeader);
  const std::pair<Dictionary, std::int64_t> cases[] = {
      {{}, body},
      {parts({"x"}), body},
      {parts({Array{}}), body},
      {parts({Array{content, content}}), body},
      {parts({Array{Dictionary{{"partContent", 7}}}}), body},
      {part("A", "b\r\nC: d"), header},
      {part("Content-Disposition", "form-data; filename=\"a\n\""), header},
      {part("A", std::string("b\0", 2)), header},
      {part("A\r\nB", "c"), header},
      {part("", "c"), header},
  };
  for (const auto& [description, code] : cases) {
    const auto encoded = encodeMultipart(description);
    ASSERT_FALSE(encoded) << Value(description).description();
    EXPECT_EQ(encoded.error()->code(), code) << Value(description).description();
  }
}

TEST(RequestEncoderTest, EncodesBodiesByTypeAndSetsTheirContentType) {
  const Dictionary own{{"content-TYPE", "x/y"}, {"Dropped", nullptr}, {"N", 1}};
  const Dictionary object{{"a", 1}, {"b", Array{"c", nullptr}}};
  struct {
    RequestType type;
    Value body;
    Dictionary headers;
    std::optional<std::string> encoded;  // none: an error
    std::string headerLines;
  } const cases[] = {
      {RequestType::kJson,
       object,
       {},
       "{\"a\":1,\"b\":[\"c\",null]}",
       "Content-Type=application/json;"},
      {RequestType::kJson, object, own, "{\"a\":1,\"b\":[\"c\",null]}", "content-TYPE=x/y;N=1;"},
      {RequestType::kJson, "{ }", {}, "{ }", "Content-Type=application/json;"},
      {RequestType::kJson, Value(), own, "", "content-TYPE=x/y;N=1;"},
      {RequestType::kJson, Dictionary{{"a", Data()}}, {}, std::nullopt, ""},
      {RequestType::kRaw, Data::fromBytes("raw"), own, "raw", "content-TYPE=x/y;N=1;"},
      {RequestType::kRaw, Dictionary{}, {}, "", ""},
      {RequestType::kRaw, object, {}, std::nullopt, ""},
      {static_cast<RequestType>(2), "text", {}, std::nullopt, ""},
  };
  for (const auto& item : cases) {
    SCOPED_TRACE(item.body.description());
    HttpRequest request = encodeRequest(HttpMethod::kPost, "http://h/", {}, item.headers);
    const auto encoded = encodeBody(request, item.type, item.body);
    ASSERT_EQ(encoded.ok(), item.encoded.has_value());
    if (!encoded) continue;
    EXPECT_EQ(joined(*request.body), *item.encoded);
    std::string lines;
    for (const HttpHeader& header : request.headers)
      lines += header.name + "=" + header.value + ";";
    EXPECT_EQ(lines, item.headerLines);
  }
}

}  // namespace
}  // namespace varo::platform
