// What is decided about an answer to a range, without a network or a task.

#include "Binary/Binary/DownloadTask/DownloadKeys.h"
#include "Binary/Binary/DownloadTask/NetworkAnswer.h"
#include "Binary/Binary/DownloadTask/RangeOrder.h"
#include "Binary/Binary/DownloadTask/RangeVerdict.h"
#include "Binary/Binary/Utils/ContentRange.h"
#include "tests/support/RecordingLog.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>

namespace varo::binary {
namespace {

using namespace platform;
using namespace testing;

constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max();

TEST(ContentRangeTest, OnlyWellFormedFieldsAreRead) {
  const auto text = [](std::string_view field) -> std::string {
    const auto range = ContentRange::parse(field);
    if (!range) return "refused";
    return (range->span ? fmt::format("{}-{}", range->span->first, range->span->last) : "none") +
           (range->total ? fmt::format(" of {}", *range->total) : " of ?");
  };
  const std::pair<const char*, const char*> wellFormed[] = {
      {"bytes 0-9/10", "0-9 of 10"},
      {" Bytes 5-5/9223372036854775807 ", "5-5 of 9223372036854775807"},
      {"bytes 0-9/*", "0-9 of ?"},
      {"bytes */10", "none of 10"},
  };
  for (const auto& [field, expected] : wellFormed) EXPECT_EQ(text(field), expected);
  for (const char* field :
       {"bytes */*", "bytes 0-10/10", "bytes 9-0/10", "bytes -1-3/10", "bytes +1-3/10",
        "bytes 0-9/-1", "bytes 0-9/9223372036854775808", "bytes 0-9/", "bytes 0-9/10, 10-19/20",
        "bytes=0-9/10", "items 0-9/10", "bytes", ""}) {
    EXPECT_EQ(text(field), "refused") << field;
  }
}

// Questions: ranges of 1000 bytes of an object of 2500, of which 1000 have come.

RangeQuestion first() { return {.chunkSize = 1000}; }
RangeQuestion second(ObjectValidator object = {"\"1\"", "", 2500}) {
  RangeQuestion question{.offset = 1000, .chunkSize = 1000};
  question.known = {.object = std::move(object), .bytesPublished = 1000, .ranges = 1};
  question.known._totalFileSize = question.known.object.total;
  return question;
}
RangeQuestion secondDated(const char* tag = "") { return second({tag, "Monday", 2500}); }
RangeQuestion secondWeak() { return second({"W/\"1\"", "Monday", 2500}); }
RangeQuestion streamed(RangeQuestion question) {
  question.isStreamed = true;
  return question;
}
RangeQuestion resumed(RangeQuestion question) {
  question.isFirstOfResumed = true;
  return question;
}
RangeQuestion startedOver(RangeQuestion question) {
  question.hasStartedOver = true;
  return question;
}
/// The size was not stated; `late` is what was stated after that.
RangeQuestion ofUnknownSize(std::int64_t offset, std::int64_t late = 0) {
  RangeQuestion question = second({"\"1\"", "", late});
  question.known._totalFileSize = 0;
  question.known._isAsteriskRecieved = true;
  question.known.bytesPublished = 2500;
  question.offset = offset;
  return question;
}
RangeQuestion after(std::int64_t ranges, RangeQuestion question) {
  question.known.ranges = ranges;
  return question;
}

RangeAnswer range(std::int64_t size, const char* field, const char* tag = "",
                  const char* date = "") {
  return {.status = 206, .contentRange = field, .validator = {tag, date}, .size = size};
}
RangeAnswer whole(std::int64_t size, const char* tag = "") {
  return {.status = 200, .validator = {tag, ""}, .size = size};
}
RangeAnswer status(int code, const char* field = "", const char* tag = "") {
  return {.status = code, .contentRange = field, .validator = {tag, ""}};
}

std::string textOf(const RangeVerdict& verdict) {
  switch (verdict.kind) {
    case RangeVerdict::Kind::kRange:
      return verdict.isComplete ? "last" : "range";
    case RangeVerdict::Kind::kWhole:
      return "whole";
    case RangeVerdict::Kind::kEnd:
      return "end";
    case RangeVerdict::Kind::kAllThere:
      return "all there";
    case RangeVerdict::Kind::kStartOver:
      EXPECT_EQ(verdict.known, RangeKnowledge{});
      return "start over";
    case RangeVerdict::Kind::kError:
      break;
  }
  return fmt::format("{} {}", verdict.code, verdict.message.value_or("none"));
}

TEST(RangeVerdictTest, FollowsFromWhatIsKnownAndWhatTheAnswerSays) {
  const std::string notReceived =
      "6004 The Content-Range of the response is missing or malformed, or is not of the range "
      "asked "
      "for.";
  const std::string changed = "1019 Integrity check failed";
  const std::string empty = "6014 Empty Body Received from Server";
  const std::string other = "999 Other issues.";
  const std::string over = "start over";
  const char* kSecond = "bytes 1000-1999/2500";
  const char* kSmaller = "bytes */800";
  RangeAnswer failed = whole(30);
  failed.isError = true;
  failed.errorMessage = "gone";
  struct Case {
    const char* name;
    RangeQuestion question;
    RangeAnswer answer;
    std::string compatible;
    std::string safe = compatible;
  };
  for (const Case& c : std::vector<Case>{
           // Which bytes they are.
           {"first", first(), range(1000, "bytes 0-999/2500"), "range"},
           {"whole in one", first(), range(999, "bytes 0-998/999"), "last"},
           {"short", second(), range(1, "bytes 1000-1000/2500"), "range"},
           {"longer than asked for", second(), range(1500, "bytes 1000-2499/2500"), notReceived},
           {"malformed", second(), range(1000, "bytes 1000-"), notReceived},
           {"shifted", second(), range(1000, "bytes 999-1998/2500"), notReceived},
           {"longer than said", second(), range(1001, kSecond), notReceived},
           {"shorter than said", second(), range(1, kSecond), notReceived},
           {"empty", second(), range(0, kSecond), notReceived},
           {"another size", second(), range(1000, "bytes 1000-1999/2501"), changed, over},
           {"size is known", second(), range(1000, "bytes 1000-1999/*"), "range"},

           // Of which object they are.
           {"same tag", second(), range(1000, kSecond, "\"1\""), "range"},
           {"another tag", second(), range(1000, kSecond, "\"2\""), changed, over},
           {"weak after strong", second(), range(1000, kSecond, "W/\"1\""), "range"},
           {"another weak", second(), range(1000, kSecond, "W/\"2\""), "range", over},
           {"strong after weak", secondWeak(), range(1000, kSecond, "\"1\"", "Monday"), "range"},
           {"another strong", secondWeak(), range(1000, kSecond, "\"2\"", "Monday"), "range", over},
           {"weak, another date", secondWeak(), range(1000, kSecond, "W/\"1\"", "Friday"), "range",
            over},
           {"another date", secondDated(), range(1000, kSecond, "", "Friday"), "range", over},
           {"strong tag tells", secondDated("\"1\""), range(1000, kSecond, "\"1\"", "Friday"),
            "range"},

           // The first answer of a run that goes on with a partial file.
           {"resumed", resumed(second()), range(1000, kSecond, "\"1\""), "range"},
           {"resumed, another tag", resumed(second()), range(1000, kSecond, "\"2\""), over},
           {"resumed, again", startedOver(resumed(second())), range(1000, kSecond, "\"2\""),
            changed},
           {"resumed, streamed", streamed(resumed(second())), range(1000, kSecond, "\"2\""),
            changed},
           {"resumed, another date", resumed(secondDated()), range(1000, kSecond, "", "Friday"),
            over},
           {"resumed, weak tag", resumed(second()), range(1000, kSecond, "W/\"2\""), "range", over},
           {"resumed, 416 of another size", resumed(second()), status(416, kSmaller), over},
           {"resumed, 416", resumed(second()), status(416), other},
           {"resumed, 412", resumed(second()), status(412), other, over},

           // The end of an object of unknown size.
           {"end", ofUnknownSize(2500), range(0, "Bytes */*"), "end"},
           {"end without a field", ofUnknownSize(2500), range(0, ""), "end"},
           {"end with the size", ofUnknownSize(2500), range(0, "bytes */2500"), "end"},
           {"end with another size", ofUnknownSize(2500), range(0, "bytes */2501"), "end",
            notReceived},
           {"end with a span", ofUnknownSize(2500), range(0, "bytes 2500-3499/*"), "end",
            notReceived},
           {"end with a malformed field", ofUnknownSize(2500), range(0, "none/*"), "end",
            notReceived},
           {"end before late size", ofUnknownSize(2500, 5000), range(0, ""), "end", notReceived},
           {"end before what was", ofUnknownSize(2000), range(0, ""), "end", notReceived},
           {"late size", ofUnknownSize(2000), range(500, "bytes 2000-2499/5000"), "range"},
           {"another late size", ofUnknownSize(2000, 5000), range(500, "bytes 2000-2499/4000"),
            changed, over},
           {"nothing yet", first(), range(0, ""), notReceived},
           {"nothing at all", first(), range(0, "bytes */*"), "end"},

           // Everything at once.
           {"whole", second(), whole(2500, "\"2\""), "whole"},
           {"whole of another size", second(), whole(2600, "\"2\""), "whole"},
           {"whole and empty", first(), whole(0), "whole"},
           {"empty instead of a range", second(), whole(0), empty},
           {"error", second(), failed, "999 gone"},
           {"streamed whole", streamed(second()), whole(2500, "\"1\""), "whole"},
           {"streamed whole, another tag", streamed(second()), whole(2500, "\"2\""), changed},
           {"streamed whole, another size", streamed(second()), whole(2400), changed},
           {"streamed whole, too short", streamed(ofUnknownSize(2500)), whole(2499), changed},

           // Refusals.
           {"416 at the end", second({"", "", 0}), status(416, "bytes */1000"), other, "all there"},
           {"416 before the end", second({"", "", 0}), status(416, kSmaller), other, over},
           {"416 once more", startedOver(second({"", "", 0})), status(416, kSmaller), other},
           {"416 of another size", second(), status(416, "bytes */1000"), other, over},
           {"412 without a condition", first(), status(412), other},
           {"404", first(), status(404), "999 Not Found."},
           {"500", first(), status(500), "999 Internal Server Error"},
           {"204", first(), status(204), other},

           // Too many ranges.
           {"as many as may be", after(191, second()), range(1, "bytes 1000-1000/2500"), "range"},
           {"too many", after(192, second()), range(1, "bytes 1000-1000/2500"),
            "999 The object came in too many ranges, each much shorter than asked for."},
           {"the last of too many", after(kHuge - 1, second({"", "", 1001})),
            range(1, "bytes 1000-1000/1001"), "last"},
           {"many of unknown size", after(65'535, ofUnknownSize(2500)),
            range(1, "bytes 2500-2500/*"), "range"},
           {"too many of unknown size", after(65'536, ofUnknownSize(2500)),
            range(1, "bytes 2500-2500/*"), "999 The object has no end"},
       }) {
    for (const bool isSafe : {false, true}) {
      RangeQuestion question = c.question;
      question.isSafe = isSafe;
      EXPECT_EQ(textOf(judge(question, c.answer)), isSafe ? c.safe : c.compatible)
          << c.name << (isSafe ? ", safe" : ", compatible");
    }
  }
}

TEST(RangeVerdictTest, KnowledgeGrowsAndTheSizeIsNeverReplaced) {
  const auto said = [](const RangeQuestion& question, const RangeAnswer& answer) {
    const RangeKnowledge known = judge(question, answer).known;
    return fmt::format("{} {}{} {} {} {}", known._totalFileSize, known.object.total,
                       known._isAsteriskRecieved ? "*" : "", known.object.entityTag,
                       known.bytesPublished, known.ranges);
  };
  EXPECT_EQ(said(first(), range(1000, "bytes 0-999/2500", "W/\"1\"")), "2500 2500 W/\"1\" 1000 1");
  EXPECT_EQ(said(secondWeak(), range(9, "bytes 1000-1008/*", "\"1\"")), "2500 2500 \"1\" 1009 2");
  EXPECT_EQ(said(first(), range(9, "bytes 0-8/*", "\"1\"")), "0 0* \"1\" 9 1");
  EXPECT_EQ(said(ofUnknownSize(2500), range(9, "bytes 2500-2508/9999")), "0 9999* \"1\" 2509 2");
  EXPECT_EQ(said(second(), whole(2600, "\"2\"")), "2600 2600 \"2\" 2600 1");
  EXPECT_EQ(said(first(), whole(2600)), "0 2600  2600 0");
}

TEST(RangeVerdictTest, RangesEndWithTheObjectAndNeverOverflow) {
  EXPECT_EQ(first().last(), 999);
  RangeQuestion question = second({"", "", 1001});
  EXPECT_EQ(question.last(), 1000);
  EXPECT_EQ(question.length(), 1);
  question = {.offset = kHuge - 1, .chunkSize = kHuge};
  EXPECT_EQ(question.last(), kHuge);
}

TEST(ObjectValidatorTest, ComesBackFromItsTextUnlessThatIsDamaged) {
  const char* kDate = "Sun, 06 Nov 1994 08:49:37 GMT";
  const struct {
    ObjectValidator validator;
    std::string ifRange;
  } cases[] = {{{"\"a\\\" \n\xC3\xA4\"", kDate, 2500, true}, "\"a\\\" \n\xC3\xA4\""},
               {{"W/\"1\"", kDate, kHuge, true}, ""},
               {{"", kDate, 0, true}, kDate},
               {{"", kDate, 0, false}, ""},
               {{"", "", 1}, ""}};
  for (const auto& [validator, ifRange] : cases) {
    const std::string text = validator.text();
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_EQ(ObjectValidator::parse(text), validator) << text;
    EXPECT_EQ(validator.ifRange(), ifRange);
  }
  const ObjectValidator tooLong{std::string(5000, 'x'), std::string(256, '\x01'), 7};
  EXPECT_LE(tooLong.text().size(), ObjectValidator::kMaxText);
  EXPECT_EQ(ObjectValidator::parse(tooLong.text())->entityTag, "");
  EXPECT_EQ(ObjectValidator{}.text(), "");
  for (const char* damaged : {"", "{}", "7", R"({"total":-1})", R"({"etag":"x")", "\xFF"}) {
    EXPECT_EQ(ObjectValidator::parse(damaged), std::nullopt) << damaged;
  }
  EXPECT_TRUE(isLaterDate("Sun, 06 Nov 1994 08:49:38 GMT", kDate));
  EXPECT_FALSE(isLaterDate(kDate, kDate));
  for (const char* noDate : {"", "Sunday, 06-Nov-94 08:49:37 GMT", "Sun, 31 Feb 2094 08:49:37 GMT",
                             "Sun, 06 Nov 2094 08:-9:37 GMT"}) {
    EXPECT_FALSE(isLaterDate(noDate, kDate)) << noDate;
  }
}

// Reading answers.

NetworkAnswer read(const std::string& body, const Dictionary& headers, AnswerReading reading = {}) {
  reading.maxBase64 = 1000;
  return readAnswer(HttpResponseInfo(200, headers), Data::fromBytes(body), reading);
}

TEST(NetworkAnswerTest, JsonThatTellsOfAnErrorIsOneAndNoSecretOfItIsLogged) {
  const Dictionary json{{"content-type", "application/JSON; charset=utf-8"}};
  const struct {
    std::string body;
    bool isOnline;
    const char* error;  // null: it is the object
  } cases[] = {
      {R"({"d":{"error":true,"msg":"gone","token":"s3cr3t"}})", false, "gone"},
      {R"({"d":{"error":"true"}})", false, ""},
      {R"({"d":{"error":false,"msg":"gone"}})", false, nullptr},
      {R"({"d":7})", false, nullptr},
      {R"({"opstatus":1,"token":"s3cr3t"})", true, ""},
      {R"({"opstatus":0})", true, nullptr},
      {R"({"d":{"error":true}})", true, nullptr},
      {"no JSON", false, nullptr},
  };
  const test::RecordingLog log(LogLevel::kDebug);
  for (const auto& c : cases) {
    const RangeAnswer said = read(c.body, json, {.isOnline = c.isOnline}).said;
    EXPECT_EQ(said.isError, c.error != nullptr) << c.body;
    EXPECT_EQ(said.errorMessage.value_or(""), c.error != nullptr ? c.error : "") << c.body;
    EXPECT_FALSE(read(c.body, {{"Content-Type", "text/plain"}}).said.isError);
  }
  EXPECT_FALSE(log->lines().empty());
  for (const auto& line : log->lines()) EXPECT_THAT(line.text, Not(HasSubstr("s3cr3t")));
}

TEST(NetworkAnswerTest, ObjectsInBase64AreDecodedUpToTheLimit) {
  const auto bytes = [](const std::string& body) {
    const NetworkAnswer answer = read(body, {}, {.isBase64 = true});
    EXPECT_EQ(answer.said.size, static_cast<std::int64_t>(answer.body.size()));
    return answer.said.errorMessage.value_or(answer.body.readAll(1000).value());
  };
  EXPECT_EQ(bytes(R"({"d":{"results":"Ynl0ZXM=\r\n"}})"), "bytes");
  for (const char* undecodable :
       {"no JSON", "{}", R"({"d":{}})", R"({"d":{"results":7}})", R"({"d":{"results":"%%%"}})"}) {
    EXPECT_EQ(bytes(undecodable), "") << undecodable;
  }
  EXPECT_EQ(bytes(std::string(1001, ' ')),
            "A response in Base64 may have 1000 bytes at most and has 1001.");
}

// Asking.

TEST(RangeOrderTest, DownloadOfABlobNeedsItsScopeObjectAndKeys) {
  const Dictionary whole{
      {kURL, "http://h/"}, {kScopeName, "s"}, {kObjectName, "o"}, {kPrimaryKeys, Dictionary()}};
  EXPECT_TRUE(RangeOrder::unpackInputContext(whole));
  for (const char* key : {kScopeName, kObjectName, kPrimaryKeys}) {
    Dictionary incomplete = whole;
    incomplete.remove(key);
    EXPECT_FALSE(RangeOrder::unpackInputContext(incomplete)) << key;
  }
}

TEST(RangeOrderTest, AnswersAreLimitedToWhatWasAskedFor) {
  const auto own = std::make_shared<OperationSettings>();
  own->limits.base64 = 70;
  const auto limits = [&own](const Dictionary& more, const RangeQuestion& question) {
    Dictionary input{{kURL, "http://h/"}, {kOnlineDownloadTask, true}};
    input.set(kOperationSettings, OperationSettings::value(own));
    input.addEntries(more);
    const Dictionary options = RangeOrder::unpackInputContext(input).value()->optionsFor(question);
    const ResponseLimits given = options[kResponseLimits].objectAs<ResponseLimitsValue>()->limits;
    EXPECT_EQ(given.error, 65'536U);
    return std::pair(given.success, given.partial);
  };
  const ObjectValidator large{"", "", 99'999};
  EXPECT_EQ(limits({}, first()), std::pair(ResponseLimits::kUnlimited, std::uint64_t{1000}));
  EXPECT_EQ(limits({}, second(large)), (std::pair<std::uint64_t, std::uint64_t>(99'999, 1000)));
  EXPECT_EQ(limits({}, second({"", "", 1001})),
            (std::pair<std::uint64_t, std::uint64_t>(65'536, 1)));
  EXPECT_EQ(limits({{kResponseType, "Base64"}}, second(large)).first, 70U);
  own->limits.file = 80;
  EXPECT_EQ(limits({}, first()).first, 80U);
}

}  // namespace
}  // namespace varo::binary
