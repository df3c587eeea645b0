#include "Platform/Crypto/HmacSha256.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/File.h"

#include <gtest/gtest.h>

namespace varo::platform {
namespace {

Data inFile(std::string_view bytes) {
  const auto file = File::createUnnamed(testing::TempDir()).value();
  EXPECT_TRUE(file->writeAt(0, bytes).ok());
  return Data::fromFileRegion(file, 0, bytes.size());
}

// The examples of FIPS 180-2 and its successors.
TEST(Sha256Test, PublishedExamplesOnceAtOnceAndPieceByPiece) {
  const struct {
    std::string bytes;
    std::string_view digest;
  } cases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
       "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(Sha256::of(item.bytes)->hex(), item.digest);
    EXPECT_EQ(Sha256::of(Data::fromBytes(item.bytes))->hex(), item.digest);
    EXPECT_EQ(Sha256::of(inFile(item.bytes))->hex(), item.digest);
    Sha256 hash;
    for (std::size_t i = 0; i < item.bytes.size(); i += 7) hash.update(item.bytes.substr(i, 7));
    EXPECT_EQ(hash.finish()->hex(), item.digest);
  }
}

// RFC 4231, section 4, cases 1 to 4, 6 and 7 (5 is of a shortened code).
TEST(HmacSha256Test, PublishedExamplesOnceAtOnceAndPieceByPiece) {
  std::string ascending;
  for (char c = 1; c <= 25; ++c) ascending += c;
  const struct {
    std::string key;
    std::string bytes;
    std::string_view code;
  } cases[] = {
      {std::string(20, '\x0b'), "Hi There",
       "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7"},
      {"Jefe", "what do ya want for nothing?",
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
      {std::string(20, '\xaa'), std::string(50, '\xdd'),
       "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe"},
      {ascending, std::string(50, '\xcd'),
       "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b"},
      {std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First",
       "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54"},
      {std::string(131, '\xaa'),
       "This is a test using a larger than block-size key and a larger than block-size data. The "
       "key needs to be hashed before being used by the HMAC algorithm.",
       "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2"},
      {"", "", "b613679a0814d9ec772f95d778c35fc5ff1697c493715653c6c712144292c5ad"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(HmacSha256::of(item.key, item.bytes)->hex(), item.code);
    EXPECT_EQ(HmacSha256::of(item.key, inFile(item.bytes))->hex(), item.code);
    HmacSha256 code(item.key);
    for (std::size_t i = 0; i < item.bytes.size(); i += 7) code.update(item.bytes.substr(i, 7));
    EXPECT_EQ(code.finish()->hex(), item.code);
  }
  EXPECT_EQ(HmacSha256::of({}, std::string_view())->hex(), cases[6].code);  // no bytes, not even ""
}

TEST(Sha256Test, FileThatShrankGivesItsErrorAndNoDigest) {
  const auto file = File::createUnnamed(testing::TempDir()).value();
  const Data data = Data::fromFileRegion(file, 0, 100);
  EXPECT_EQ(Sha256::of(data).error()->domain(), kPosixErrorDomain);
  EXPECT_EQ(HmacSha256::of("key", data).error()->domain(), kPosixErrorDomain);
}

TEST(Sha256Test, SecondFinishIsAnErrorValue) {
  Sha256 hash;
  ASSERT_TRUE(hash.finish().ok());
  hash.update("more");
  EXPECT_EQ(hash.finish().error()->domain(), kCryptoErrorDomain);
}

}  // namespace
}  // namespace varo::platform
