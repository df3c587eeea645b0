#include "Platform/Foundation/Base64.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Excerpt.h"
#include "Platform/Foundation/Redaction.h"
#include "Platform/Foundation/Text.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Logging/SpdlogSink.h"
#include "tests/support/Files.h"
#include "tests/support/RecordingLog.h"

#include <gmock/gmock.h>

#include <chrono>

namespace varo::platform {
namespace {

using namespace std::literals;
using namespace testing;

TEST(TextTest, Utf8IsCheckedAndMendedByTheUnicodeTable) {
  const struct {
    std::string bytes;
    std::string_view mended;
  } cases[] = {
      {"\u00e4\u20ac\U0001F600", "\u00e4\u20ac\U0001F600"},
      {"a\xC3", "a\uFFFD"},
      {"\xC0\x80", "\uFFFD\uFFFD"},                      // overlong NUL
      {"\xE0\x9F\xBF", "\uFFFD\uFFFD\uFFFD"},            // overlong
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},            // surrogate
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},  // beyond the last character
      {"\xE2\x82 x", "\uFFFD\uFFFD x"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(sanitizeUtf8(item.bytes), item.mended);
    EXPECT_EQ(isUtf8(item.bytes), item.bytes == item.mended) << item.mended;
    EXPECT_TRUE(isUtf8(item.mended));
  }
  const std::string_view text = "ab\U0001F600";
  for (std::size_t limit = 0; limit <= 7; ++limit) {
    EXPECT_EQ(utf8Prefix(text, limit).size(), limit < 2 ? limit : limit < 6 ? 2 : 6) << limit;
  }
}

TEST(TextTest, IntegersAreTheWholeTextOrNone) {
  EXPECT_EQ(parseInteger("-9223372036854775808"), INT64_MIN);
  EXPECT_EQ(parseInteger("007"), 7);
  for (const std::string_view text :
       {"", "-", "+1", " 1", "1 ", "1.0", "0x1", "9223372036854775808"}) {
    EXPECT_EQ(parseInteger(text), std::nullopt) << text;
  }
  EXPECT_FALSE(equalIgnoringCase("[", "{"));  // 32 apart, as the letters are
}

TEST(TextTest, OnlyLogLinesAreCut) {
  const std::string text(10000, 'x');
  EXPECT_EQ(formatMessage("a %@ b", {text}), "a " + text + " b");
  EXPECT_EQ(formatMessage("%@", {Array{text, text}}), "[" + text + ", " + text + "]");
  EXPECT_EQ(formatMessage("%@", {Dictionary{{"token", text}}}), "{token: <redacted>}");
  EXPECT_EQ(formatLogMessage("a %@ b", {text}), "a " + text.substr(0, Value::kLogLimit) + "... b");
}

TEST(ValueDescriptionTest, LongTextIsNotCutInsideACharacter) {
  for (std::size_t lead = 4090; lead < 4102; ++lead) {
    const Value value = std::string(lead, 'x') + "\U0001F600\U0001F600\U0001F600";
    EXPECT_TRUE(isUtf8(value.description())) << lead;
    EXPECT_TRUE(isUtf8(Value(Array{value, value}).description())) << lead;
    EXPECT_THAT(value.description(), testing::EndsWith(lead > 4084 ? "..." : "x"));
  }
}

TEST(RedactionTest, NothingBehindASecretKeySurvives) {
  const struct {
    std::string text;
    std::string_view kept;
  } cases[] = {
      {R"({"token":"hush","b":1})", R"("b":1})"},
      {R"({"Token" : "a\"hush\\","b":1})", R"("b":1})"},
      {R"({"Authorization":{"a":["x","hush"],"c":"}hush"},"b":1})", R"("b":1})"},
      {R"("{\"headers\":{\"x-amz-security-token\":\"hush\",\"b\":1}}")", R"(\"b\":1}})"},
      {R"("{\"a\":\"{\\\"token\\\":\\\"hush\\\",\\\"b\\\":1}\"}")", R"(\\\"b\\\":1}\"}")"},
      {"{'token': 'hush', 'b': 1}", "'b': 1}"},
      {"https://h/p?X-Amz-Signature=hush&b=1", "&b=1"},
      {"https://h/?u=https%3A%2F%2Fi%2F%3FX-Amz-Signature%3Dhush&b=1", "&b=1"},
      {"GET /\r\nX-Pelmar-Authorization: Bearer hush\r\nB: 1", "\r\nB: 1"},
      {"Cookie: a=hush; b=hush\nB: 1", "\nB: 1"},
      {"Set-Cookie: a=hush, b=\"hush\"; Path=/\r\nB: 1", "\r\nB: 1"},
      {"AUTHORIZATION: AWS4-HMAC-SHA256 Credential=hush/a, Signature=hush\nB: 1", "\nB: 1"},
      {"sent Authorization: Bearer hush", "sent Authorization: "},
      {"token=hush is not valid", " is not valid"},
      {"the token: hush-1 is not valid", " is not valid"},
      {"the token: Bearer hush is not valid", " is not valid"},
      {"a: 1\ntoken: hush\nb: 1", "\nb: 1"},
      {"security_key eq 'hush' and b eq '1'", " and b eq '1'"},
      {"(b eq '1' and security_key  EQ 'it's hush')", "(b eq '1'"},
      {"?$filter=security_key%20eq%20%27hush%27%20and%20b%20eq%20%271%27", "%20and%20b%20eq"},
      {"$filter=security_key+ne+'hush'&b=1", "&b=1"},
      {"https://h/p?varosyncsessionid=hush&b=1", "&b=1"},
      {"{SessionID: hush, b: 1}", ", b: 1}"},
      {"/p;jsessionid=hush?b=1", ";jsessionid="},
      {"Opening http://u:hush@h:1/p failed", "Opening http://h:1/p failed"},
      {R"({"token":["hush)", "{\"token\":"},
      {R"({"token":"hush\)", "{\"token\":"},
  };
  for (const auto& item : cases) {
    const std::string redacted = redactSecrets(item.text);
    EXPECT_THAT(redacted, Not(HasSubstr("hush")));
    EXPECT_THAT(redacted, HasSubstr(item.kept));
    // The same inside of what is logged.
    EXPECT_THAT(Value(Array{item.text}).description(), Not(HasSubstr("hush")));
  }
  for (const std::string_view harmless :
       {"the token was refused", "tokens=1", R"({"name":"token"})", "author: x", "",
        "Invalid token: it expired at noon", "Invalid token: expired", "Bad signature: mismatch.",
        "The security_key equals nothing", "Wrong Authorization: it ends", "a://b/c@d"}) {
    EXPECT_EQ(redactSecrets(harmless), harmless);
  }
}

TEST(RedactionTest, ValuesKeepTheirShapeWithoutSecrets) {
  const Dictionary headers{{"Set-Cookie", Array{"hush", "hush"}}, {"Age", 7}, {"ETag", "x"}};
  EXPECT_EQ(withoutSecrets(Dictionary{{"response_headers", headers}, {"url", "h?sig=hush"}}),
            (Dictionary{{"response_headers",
                         Dictionary{{"Set-Cookie", kRedacted}, {"Age", 7}, {"ETag", "x"}}},
                        {"url", "h?sig=<redacted>"}}));
  EXPECT_THAT(withoutSecrets(Value(Array{Dictionary{{"a", "token=hush"}}})).textValue(),
              Eq("[{\"a\":\"token=<redacted>\"}]"));
  // What somebody was given is theirs, but for the keys; not so what an error says.
  const ErrorPtr error = std::make_shared<const Error>("d", 7, Dictionary{{"a", "token=hush"}});
  const Value kept =
      withoutSecrets(Dictionary{{"a", "sig=x"}, {"sig", "hush"}, {"e", error}}, SearchTexts::kNo);
  const Dictionary entries = kept.dictionaryValue();
  EXPECT_EQ(entries["a"].textValue() + entries["sig"].textValue(), "sig=x<redacted>");
  EXPECT_EQ(entries["e"].error()->code(), 7);
  EXPECT_EQ(entries["e"].error()->userInfo()["a"], Value("token=<redacted>"));
}

TEST(RedactionTest, ExcerptsAreReadableBoundedAndTellNothingThatWasSent) {
  const Dictionary sent{{"X-Pelmar-Authorization", "Bearer hush-hush"},
                        {"Accept", "any text"},
                        {"parameters", Dictionary{{"security_key", "k\u00e4y"}, {"sig", "abc"}}}};
  EXPECT_EQ(excerptOf("any text: hush-hush, k\u00e4y, abc, hush\xFF", sent),
            "any text: <redacted>, <redacted>, abc, hush\uFFFD");
  const std::string lead(kExcerptLimit - 1, 'x');
  EXPECT_EQ(excerptOf(lead + "\u00e4"), lead);
  EXPECT_EQ(excerptOf(test::inFile(lead + "hush-hush"), sent), lead + "<");
  EXPECT_EQ(excerptOf(Data::fromBytes(R"({"token":"hush"})")), R"({"token":<redacted>})");
  const Data beyond = Data::fromFileRegion(test::inFile("abc").file(), 2, 10);
  EXPECT_THAT(excerptOf(beyond), StartsWith("<unreadable: "));
}

TEST(RedactionTest, UrlsAreShownWithoutWhoAsksAndWithoutSecrets) {
  const struct {
    std::string_view url, shown;
  } cases[] = {
      {"https://h:1/p@q?a=b@c&token=hush&d=e#f", "https://h:1/p@q?a=b@c&token=<redacted>&d=e"},
      {"https://u:hu@s#h@h/p", "https://h/p"},
      {"hush@h//p", "h//p"},
      {"http://", "http://"},
      {"", ""},
  };
  for (const auto& item : cases) EXPECT_EQ(redactUrl(item.url), item.shown);
}

TEST(RedactionTest, HostileTextTakesLinearTime) {
  const std::size_t size = 2000000;
  std::string repeated;
  while (repeated.size() < size) repeated += "token=\"token:[token%3d{";
  const auto start = std::chrono::steady_clock::now();
  for (const std::string& text :
       {"security_key eq '" + std::string(size, '\''), "token:[" + std::string(size, '\\'),
        "token:" + std::string(size, '['), std::string(size, '\\'),
        "token" + std::string(size, ' '), repeated}) {
    EXPECT_LE(redactSecrets(text).size(), text.size() * 2);
  }
  // Some tens of milliseconds; square time would be hours.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

TEST(LoggingTest, OnlyMessagesFromTheLevelUpReachTheSink) {
  const test::RecordingLog log(LogLevel::kWarning);
  const VaroNativeFacade logger("Test", {});
  logger.logInfo("below");
  logger.logWarning("at");
  logger.logWarning("Cookie: hush");
  logger.logFatal("above");
  VaroNativeFacade::setLogLevelAndActivateNetworkPersister(LogLevel::kOff);
  logger.logFatal("off");
  EXPECT_EQ(log->lines().size(), 3U);
  EXPECT_EQ(log->count(LogLevel::kWarning, "at"), 1);
  EXPECT_EQ(log->count(LogLevel::kWarning, "Cookie: <redacted>"), 1);
}

TEST(SpdlogSinkTest, LineNamesLevelLoggerAndPlaceAndShowsControlCharacters) {
  std::FILE* stream = std::tmpfile();
  ASSERT_NE(stream, nullptr);
  {
    SpdlogSink sink(stream);
    sink.write("Binary", LogLevel::kError, {"dir/file.cpp", 12, "f"},
               "bad \x1b[2J\r{}\n2024 forged");
    sink.flush();
  }
  std::string text(512, '\0');
  std::rewind(stream);
  text.resize(std::fread(text.data(), 1, text.size(), stream));
  std::fclose(stream);
  EXPECT_THAT(text,
              HasSubstr("error    [Binary] bad \\x1b[2J\\x0d{}\n    2024 forged (file.cpp:12)\n"));
  EXPECT_THAT(text, Not(HasSubstr("\x1b")));  // no colours either: this is no terminal
}

TEST(Base64Test, ReadsWhatEncodesBytesAndRefusesEveryOtherText) {
  const struct {
    std::string bytes;
    std::string_view text;
  } cases[] = {
      {"", ""},
      {"f", "Zg=="},
      {"foobar", "Zm9vYmFy"},
      {"\xFB\xEF\xBE\xFF\xFF\xFF", "++++////"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(base64::decode(item.text), item.bytes);
  }
  for (const std::string& text :
       {"Zg"s, "Zg==="s, "===="s, "Zm9v\n"s, "Zm 9v"s, "Zg==Zg=="s, "Zm-_"s, "Zm\0v"s, "Z=9v"s}) {
    EXPECT_EQ(base64::decode(text), std::nullopt) << text;
  }
  EXPECT_EQ(base64::decode("Zh=="), "f");  // some encoders leave bits in the last character
  EXPECT_EQ(base64::decode("Zm9="), "fo");
}

}  // namespace
}  // namespace varo::platform
