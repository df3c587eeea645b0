#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Json.h"
#include "tests/support/Files.h"

#include <limits>

namespace varo::platform {
namespace {

using namespace std::string_literals;

std::string nested(std::size_t depth) { return std::string(depth, '[') + std::string(depth, ']'); }

TEST(JsonTest, ReadsEveryFormExactly) {
  const struct {
    std::string_view text;
    Value value;
  } cases[] = {
      {" null ", nullptr},
      {"9223372036854775807", std::numeric_limits<std::int64_t>::max()},
      {"-9223372036854775808", std::numeric_limits<std::int64_t>::min()},
      {"\xEF\xBB\xBF 1", 1},
      {"1E2", 100.0},
      // The nearest doubles: these are the ones that careless conversions miss.
      {"9007199254740993.0", 9007199254740992.0},
      {"2.2250738585072011e-308", 0x0.fffffffffffffp-1022},
      {"179769313486231570000000000000000000000000000000e261", 0x1.fffffffffffffp+1023},
      {"1e-400", 0.0},
      {R"("\u00e4\ud83d\ude00\u0000\"\\\/\b\f\n\r\t")",
       "\xC3\xA4\xF0\x9F\x98\x80\0\"\\/\b\f\n\r\t"s},
      {R"({"a":1,"b":[1,{"c":null}],"a":{"d":2}})",
       Dictionary{{"a", Dictionary{{"d", 2}}}, {"b", Array{1, Dictionary{{"c", nullptr}}}}}},
  };
  for (const auto& item : cases) {
    const auto parsed = json::parse(item.text);
    ASSERT_TRUE(parsed.ok()) << item.text << parsed.error()->description();
    EXPECT_EQ(*parsed, item.value) << item.text << " gave " << parsed->description();
  }
}

TEST(JsonTest, RefusesWhatIsNotJsonWithItsPosition) {
  const struct {
    std::string text;
    std::int64_t code;
    std::string_view position;
  } cases[] = {
      {"", json::kNotJson, "byte 0:"},
      {"{} {}", json::kNotJson, "byte 3:"},
      {"\"open", json::kNotJson, "byte 5:"},
      {"NaN", json::kNotJson, "byte 0:"},
      {"1e400", json::kNotJson, "byte 5:"},
      {"1\xEF\xBB\xBF", json::kNotJson, "byte 1:"},
      {"\"\xED\xA0\x80\"", json::kNotJson, "byte "},
      {R"("\ud83d")", json::kNotJson, "byte "},
      {std::string("\0", 1), json::kNotJson, "byte 0:"},
      {nested(json::kMaxDepth + 1), json::kTooDeep, "byte 256:"},
      {std::string(1000000, '['), json::kTooDeep, "byte 256:"},
  };
  for (const auto& item : cases) {
    const auto parsed = json::parse(item.text);
    ASSERT_FALSE(parsed.ok()) << item.text.substr(0, 40);
    EXPECT_EQ(parsed.error()->domain(), json::kErrorDomain);
    EXPECT_EQ(parsed.error()->code(), item.code) << item.text.substr(0, 40);
    EXPECT_THAT(parsed.error()->localizedDescription(), testing::HasSubstr(item.position))
        << item.text.substr(0, 40);
  }
}

TEST(JsonTest, WholeNumbersReadAndWrittenAgainHaveTheSameDigits) {
  for (const std::string digits :
       {"9223372036854775807", "9223372036854775808", "9223372036854775809", "18446744073709551615",
        "18446744073709551616", "-9223372036854775808", "-9223372036854775809",
        "123456789012345678901234567890123456789"}) {
    const auto parsed = json::parse("[" + digits + "]");
    ASSERT_TRUE(parsed.ok()) << digits;
    EXPECT_EQ(json::serialize(*parsed).value(), "[" + digits + "]");
    EXPECT_EQ((*parsed->array())[0].textValue(), digits);
  }
  const std::string manyDigits(400, '9');  // beyond the doubles
  EXPECT_EQ(json::serialize(json::parse(manyDigits).value()).value(), manyDigits);
}

TEST(JsonTest, EachLimitIsNamedByTheErrorThatItCauses) {
  const struct {
    std::string text;
    JsonLimits limits;
    std::int64_t code;  // 0: it is within the limits
    std::string_view named;
  } cases[] = {
      {"[[1]]", {.depth = 2}, 0, ""},
      {"[[[1]]]", {.depth = 2}, json::kTooDeep, "byte 2: the limit is 2 levels"},
      {R"([1,"a",{"k":null}])", {.values = 5}, 0, ""},
      {R"([1,"a",{"k":null},[]])", {.values = 5}, json::kTooManyValues, "the limit is 5 values"},
      {"[{},{},{},{},{}", {.values = 3}, json::kTooManyValues, "byte 11: the limit is 3 values"},
      {"7", {.values = 0}, json::kTooManyValues, "the limit is 0 values"},
      {"[1,2]", {.bytes = 5}, 0, ""},
      {"[1,2] ", {.bytes = 5}, json::kTooManyBytes, "6 bytes: the limit is 5 bytes"},
  };
  for (const auto& item : cases) {
    for (const auto& parsed :
         {json::parse(item.text, item.limits), json::parse(test::inFile(item.text), item.limits)}) {
      ASSERT_EQ(parsed.ok(), item.code == 0) << item.text;
      if (parsed) continue;
      EXPECT_EQ(parsed.error()->code(), item.code) << item.text;
      EXPECT_THAT(parsed.error()->localizedDescription(), testing::HasSubstr(item.named));
    }
  }
}

// Pieces of a file may end anywhere: here inside of keys, numbers, escapes and sequences of UTF-8.
TEST(JsonTest, FileBackedBytesReadAsThoseInMemory) {
  std::string text = "[";
  for (int i = 1; text.size() < 1200000; ++i) {
    const std::string number = std::to_string(i);
    text += R"({"key )" + number + R"(":-)" + number + R"(.25e-3,"\ud83d\ude00 ä )" + number +
            R"(":["\n\u00e4 )" + number + "\"," + number + "000000000000,true,null]},\n";
  }
  text += "{}]";
  const auto fromMemory = json::parse(text);
  ASSERT_TRUE(fromMemory.ok()) << fromMemory.error()->description();
  const auto fromFile = json::parse(test::inFile(text));
  ASSERT_TRUE(fromFile.ok()) << fromFile.error()->description();
  EXPECT_EQ(*fromFile, *fromMemory);

  const auto tail = json::parse(test::inFile(text + "x"));
  ASSERT_FALSE(tail.ok());
  EXPECT_THAT(tail.error()->localizedDescription(),
              testing::HasSubstr("byte " + std::to_string(text.size()) + ":"));
}

TEST(JsonTest, WritesCompactlyAndReadsBackTheSame) {
  const Value value = Dictionary{
      {"text", "\"\\/\b\f\n\r\t\x01\x7F\0\xC3\xA4"s},
      {"numbers",
       Array{0, -1, std::numeric_limits<std::int64_t>::min(), 0.1, -2.5e-300, 1e22, -0.0}},
      {"nested", Dictionary{{"empty", Array{Array(), Dictionary()}}, {"null", nullptr}}},
      {"flags", Array{true, false}},
  };
  const auto text = json::serialize(value);
  ASSERT_TRUE(text.ok());
  EXPECT_EQ(*text,
            "{\"text\":\"\\\"\\\\/\\b\\f\\n\\r\\t\\u0001\x7F\\u0000\xC3\xA4\","
            "\"numbers\":[0,-1,-9223372036854775808,0.1,-2.5e-300,1e+22,-0.0],"
            "\"nested\":{\"empty\":[[],{}],\"null\":null},\"flags\":[true,false]}");
  EXPECT_EQ(json::parse(*text).value(), value);
  EXPECT_EQ(json::serialize(json::parse(nested(json::kMaxDepth)).value()).value(),
            nested(json::kMaxDepth));
}

TEST(JsonTest, RecordsAreTheirOwnWhateverTheirNeighboursHave) {
  const std::string records = R"({"a":1,"b":2},{"a":3,"b":4},{"a":5},{"a":6,"b":7,"c":8},{},)"
                              R"({"b":9,"a":10},{"b":11,"a":12})";
  const Value all = json::parse("[" + records + R"(,{"b":0,"a":1,"b":2}])").value();
  Dictionary changed = (*all.array())[1].dictionaryValue();
  changed.set("new", 5);
  EXPECT_TRUE(changed.remove("a"));
  EXPECT_EQ(json::serialize(changed).value(), R"({"b":4,"new":5})");
  EXPECT_EQ(json::serialize(all).value(), "[" + records + R"(,{"b":2,"a":1}])");
}

TEST(JsonTest, LargeRecordsAreTheirOwnToo) {
  // So many keys are found by their hash.
  const auto record = [](int count, const std::string& last) {
    std::string text = "{";
    for (int i = 0; i < count; ++i)
      text += "\"k" + std::to_string(i) + "\":" + std::to_string(i) + ",";
    return text + last + "}";
  };
  const std::string records = record(40, R"("z":1)") + "," + record(40, R"("z":2)") + "," +
                              record(30, R"("y":3)") + "," + record(39, R"("k39":4)") + "," +
                              record(40, R"("z":5)");
  const Value all = json::parse("[" + records + "," + record(40, R"("k3":-3,"z":6)") + "]").value();
  const Array& parsed = *all.array();
  for (const Value& each : parsed) {
    const Dictionary entries = each.dictionaryValue();
    for (const auto& entry : entries) EXPECT_EQ(entries.find(entry.key), &entry.value) << entry.key;
  }
  EXPECT_EQ(parsed[5].dictionaryValue()["k3"], Value(-3));
  Dictionary changed = parsed[1].dictionaryValue();
  EXPECT_TRUE(changed.remove("k0"));
  changed.set("new", 7);
  EXPECT_EQ(changed["z"], Value(2));
  EXPECT_EQ(changed["new"], Value(7));
  EXPECT_FALSE(changed.contains("k0"));
  EXPECT_TRUE(json::serialize(all).value().starts_with("[" + records));
}

TEST(JsonTest, RefusesToWriteWhatHasNoJsonForm) {
  const Value tooDeep = Array{json::parse(nested(json::kMaxDepth)).value()};
  const Value cases[] = {
      Value(),
      Data::fromBytes("abc"),
      Error::make("domain", 1, "text"),
      std::numeric_limits<double>::infinity(),
      "\xFF",
      Dictionary{{"\xED\xA0\x80", 1}},
      tooDeep,
  };
  for (const Value& value : cases) {
    const auto text = json::serialize(Dictionary{{"key", Array{value}}});
    ASSERT_FALSE(text.ok()) << value.description();
    EXPECT_EQ(text.error()->domain(), json::kErrorDomain);
  }
}

}  // namespace
}  // namespace varo::platform
