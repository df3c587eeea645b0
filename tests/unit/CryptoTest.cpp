#include "Platform/Crypto/HmacSha256.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Error.h"
#include "tests/support/Files.h"
#include "tests/support/OwnProcess.h"

#include <cstdlib>
#include <unistd.h>

namespace varo::platform {
namespace {

using namespace test;

TEST(Sha256Test, PublishedExamplesOnceAtOnceAndPieceByPiece) {
  const struct {
    std::string bytes;
    std::string_view digest;
  } cases[] = {
      {"", "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855"},
      {"abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {std::string(1000000, 'a'),
       "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0"},
  };
  for (const auto& item : cases) {
    EXPECT_EQ(Sha256::of(Data::fromBytes(item.bytes))->hex(), item.digest);
    EXPECT_EQ(Sha256::of(inFile(item.bytes))->hex(), item.digest);
    Sha256 hash;
    for (std::size_t i = 0; i < item.bytes.size(); i += 7) hash.update(item.bytes.substr(i, 7));
    EXPECT_EQ(hash.finish()->hex(), item.digest);
  }
}

TEST(HmacSha256Test, PublishedExamplesOnceAtOnceAndPieceByPiece) {
  const struct {
    std::string key, bytes;
    std::string_view code;
  } cases[] = {
      {"Jefe", "what do ya want for nothing?",
       "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843"},
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
}

TEST(Sha256Test, FileThatShrankGivesItsErrorAndNoDigest) {
  const auto file = File::createUnnamed(testing::TempDir()).value();
  const Data data = Data::fromFileRegion(file, 0, 100);
  EXPECT_EQ(Sha256::of(data).error()->domain(), kPosixErrorDomain);
  EXPECT_EQ(HmacSha256::of("key", data).error()->domain(), kPosixErrorDomain);
}

TEST(OpenSslLibraryTest, DigestsCanBeMadeUntilTheProcessIsGone) {
  // A process that has made none before.
  inOwnProcess([] {
    static const auto isWell = [] {
      return Sha256::of("abc").ok() && HmacSha256::of("key", "abc").ok();
    };
    // Registered before the library's first use, so called after whatever that registers.
    std::atexit([] { ::_exit(isWell() ? 0 : 3); });
    require(isWell(), "digests are made");
  });
}

}  // namespace
}  // namespace varo::platform
