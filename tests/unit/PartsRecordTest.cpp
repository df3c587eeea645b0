#include "Client/PartsRecord.h"
#include "Platform/Crypto/Sha256.h"

#include <gtest/gtest.h>

#include <string>

namespace varo::detail {
namespace {

PartsRecord sample() {
  return {.object = "digest",
          .entityTag = "\"tag \\ \"",
          .objectSize = 1'000,
          .first = 100,
          .plan = {850, 100},
          .isThere = {true, true, false, false, true, false, true, true, true}};
}

/// As a whole, with the digest that belongs to it.
std::string sealed(const std::string& line) {
  return line + "\n" + platform::Sha256::of(line)->hex() + "\n";
}

TEST(PartsRecordTest, SaysWhatWasNoted) {
  const auto read = PartsRecord::parse(sample().text());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->text(), sample().text());
  EXPECT_EQ(read->isThere, sample().isThere);
  EXPECT_EQ(read->firstMissing(), 2U);
  EXPECT_EQ(read->end(), 850U);
  EXPECT_EQ(read->bytesThere(), 550U);
  PartsRecord unsure = sample();
  unsure.entityTag = "W/\"weak\"";
  EXPECT_EQ(unsure.text(), "");
}

TEST(PartsRecordTest, TakesNothingThatIsDamagedOrCannotBe) {
  const std::string good = sample().text();
  for (std::size_t i = 0; i < good.size(); ++i) {
    std::string damaged = good;
    damaged[i] = static_cast<char>(damaged[i] ^ 1);
    EXPECT_FALSE(PartsRecord::parse(damaged)) << i;
    EXPECT_FALSE(PartsRecord::parse(good.substr(0, i))) << i;
  }
  const std::string line = good.substr(0, good.find('\n'));
  ASSERT_TRUE(PartsRecord::parse(sealed(line)));
  const struct {
    const char *from, *to;
  } lies[] = {
      {"\"version\":1", "\"version\":2"},
      {"\"size\":850", "\"size\":901"},
      {"\"size\":850", "\"size\":0"},
      {"\"size\":850", "\"size\":-1"},
      {"\"first\":100", "\"first\":\"100\""},
      {"\"partSize\":100", "\"partSize\":0"},
      {"0-1,4,6-8", "0-1,4,6-9"},
      {"0-1,4,6-8", "4,0-1"},
      {"0-1,4,6-8", "1-0"},
      {"0-1,4,6-8", "-1"},
      {"0-1,4,6-8", "0--1"},
      {"0-1,4,6-8", "0-1,,4"},
      {"\\\"tag", "tag"},
      {"{", "["},
      {"\"objectSize\":1000", "\"objectSize\":18446744073709551615"},
  };
  for (const auto& [from, to] : lies) {
    std::string lie = line;
    ASSERT_NE(lie.find(from), std::string::npos) << from;
    EXPECT_FALSE(
        PartsRecord::parse(sealed(lie.replace(lie.find(from), std::string(from).size(), to))))
        << lie;
  }
  std::string many = line;
  many.replace(many.find("\"objectSize\":1000"), 17, "\"objectSize\":4611686018427387904");
  many.replace(many.find("\"size\":850"), 10, "\"size\":4611686018427387000");
  EXPECT_FALSE(PartsRecord::parse(sealed(many))) << "its parts would take all memory";
}

}  // namespace
}  // namespace varo::detail
