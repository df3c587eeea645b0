#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <gtest/gtest.h>

namespace varo::platform {
namespace {

TEST(DictionaryTest, EnumeratesInInsertionOrderAndKeepsTheIndexTrueWhenLarge) {
  Dictionary dictionary;
  for (int i = 0; i < 100; ++i) dictionary.set("k" + std::to_string(i), i);
  EXPECT_TRUE(dictionary.remove("k10"));
  dictionary.set("k20", "changed");
  dictionary.set("k30", Value());
  ASSERT_EQ(dictionary.size(), 98U);
  EXPECT_EQ(dictionary["k99"].integerValue(), 99);
  EXPECT_EQ(dictionary["k20"].textValue(), "changed");
  EXPECT_FALSE(dictionary.contains("k10"));
  EXPECT_FALSE(dictionary.contains("k30"));
  EXPECT_EQ(dictionary.begin()[10].key, "k11");
}

TEST(DictionaryTest, ManyKeysAreFoundSetReplacedAndCopied) {
  constexpr int kKeys = 200000;  // hours, were each compared with all
  Dictionary dictionary;
  const auto key = [](int i) { return "key number " + std::to_string(i); };
  for (int i = 0; i < kKeys; ++i) dictionary.set(key(i), i);
  const Dictionary copy = dictionary;
  for (int i = 0; i < kKeys; ++i) dictionary.set(key(i), -i);
  ASSERT_EQ(dictionary.size(), std::size_t{kKeys});
  for (int i = 0; i < kKeys; ++i) {
    ASSERT_EQ(dictionary[key(i)].integerValue(), -i);
    ASSERT_EQ(copy[key(i)].integerValue(), i);
  }
  EXPECT_FALSE(dictionary.contains(key(kKeys)));
}

TEST(ValueTest, ConvertsAsThePlatformDoes) {
  const struct {
    Value value;
    std::int64_t integer;
    bool boolean;
  } cases[] = {
      {"0", 0, false},
      {"  42abc", 42, false},
      {"YES", 0, true},
      {"True", 0, true},
      {"+5", 5, false},
      {"+-5", 0, false},
      {"99999999999999999999", INT64_MAX, false},
      {2.9, 2, true},
      {1e300, INT64_MAX, true},
      {-1e300, INT64_MIN, true},
      {true, 1, true},
      {nullptr, 0, false},
      {Value(), 0, false},
      {Dictionary{}, 0, false},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(item.value.integerValue(), item.integer) << item.value.description();
    EXPECT_EQ(item.value.boolValue(), item.boolean) << item.value.description();
  }
}

TEST(ValueTest, TextOfContainersIsTheirWholeJson) {
  const std::string longText(10000, 'x');
  const struct {
    Value value;
    std::string text;
  } cases[] = {
      {Array{1, "a\"b", nullptr, true}, R"([1,"a\"b",null,true])"},
      {Dictionary{{"token", "kept"}, {"list", Array{longText, Dictionary{}}}},
       R"({"token":"kept","list":[")" + longText + R"(",{}]})"},
      {Array{Value(), "\xFF", std::numeric_limits<double>::infinity(), Data::fromBytes("a"),
             Error::make("d", 1, "t")},
       "[null,\"\uFFFD\",\"inf\",\"<1 bytes: 61>\",\"d 1: t\"]"},
      {"as it is", "as it is"},
      {Value(), ""},
  };
  for (const auto& item : cases) EXPECT_EQ(item.value.textValue(), item.text);
}

TEST(ValueTest, WholeNumbersKeepTheirDigits) {
  const std::uint64_t largest = UINT64_MAX;
  EXPECT_EQ(Value(largest), Value::wholeNumber("18446744073709551615"));
  EXPECT_EQ(Value(largest).textValue(), "18446744073709551615");
  EXPECT_EQ(Value(largest).integerValue(), INT64_MAX);
  EXPECT_EQ(Value::wholeNumber("-99999999999999999999").integerValue(), INT64_MIN);
  EXPECT_TRUE(Value(largest).boolValue());
  EXPECT_EQ(Value(std::uint64_t{INT64_MAX}), Value(INT64_MAX));
  EXPECT_EQ(Value::wholeNumber("-9223372036854775808"), Value(INT64_MIN));
}

TEST(ValueTest, DescriptionHidesSecretsAndIsBounded) {
  const Value value = Dictionary{{"headers", Dictionary{{"x-pelmar-AUTHORIZATION", "hush"}}},
                                 {"text", std::string(100000, 'x')}};
  const std::string description = value.description();
  EXPECT_EQ(description.find("hush"), std::string::npos);
  EXPECT_NE(description.find("<redacted>"), std::string::npos);
  EXPECT_LT(description.size(), 5000U);
}

}  // namespace
}  // namespace varo::platform
