#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <gtest/gtest.h>

namespace varo::platform {
namespace {

TEST(DictionaryTest, EnumeratesInInsertionOrderAndKeepsTheIndexTrueWhenLarge) {
  constexpr int kKeys = 200000;  // hours, were each compared with all
  Dictionary dictionary;
  const auto key = [](int i) { return "k" + std::to_string(i); };
  for (int i = 0; i < kKeys; ++i) dictionary.set(key(i), i);
  const Dictionary copy = dictionary;
  EXPECT_TRUE(dictionary.remove("k10"));
  dictionary.set("k20", "changed");
  dictionary.set("k30", Value());
  ASSERT_EQ(dictionary.size(), std::size_t{kKeys} - 2);
  for (int i = 31; i < kKeys; ++i) ASSERT_EQ(dictionary[key(i)].integerValue(), i);
  EXPECT_EQ(dictionary["k20"].textValue(), "changed");
  EXPECT_EQ(copy["k20"].integerValue() + copy["k30"].integerValue(), 50);
  EXPECT_FALSE(dictionary.contains("k10"));
  EXPECT_FALSE(dictionary.contains("k30"));
  EXPECT_EQ(dictionary.begin()[10].key, "k11");
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

}  // namespace
}  // namespace varo::platform
