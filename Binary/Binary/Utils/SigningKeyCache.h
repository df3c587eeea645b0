#pragma once

#include "Platform/Crypto/HmacSha256.h"
#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"

#include <cstddef>
#include <memory>
#include <string_view>
#include <vector>

namespace varo::binary {

/// What the requests of a day to one service are signed with. Immutable, thread-safe; wiped when
/// the last owner drops it.
struct SigningKey {
  platform::Sha256Digest bytes;
  /// The codes under this key.
  platform::HmacSha256 hmac;
};

/// Keeps the signing keys of the last few scopes (secret, date, region, service), since deriving
/// one costs four keyed codes and the same one signs a whole day's requests.
///
/// Neither the secret nor any other text of a scope is kept, only a digest of them all, so another
/// scope never gets a key. Thread-safe.
class SigningKeyCache {
 public:
  /// How many keys are kept; a new one takes the place of the oldest.
  static constexpr std::size_t kCapacity = 16;

  using Key = std::shared_ptr<const SigningKey>;

  /// The process's cache, never destroyed.
  [[nodiscard]] static SigningKeyCache& shared();

  /// The key of this scope, from those kept or derived now. `date` is "yyyyMMdd".
  [[nodiscard]] platform::Result<Key> keyOf(std::string_view secret, std::string_view date,
                                            std::string_view region, std::string_view service);

 private:
  struct Entry {
    platform::Sha256Digest fingerprint;
    Key key;
  };

  [[nodiscard]] Key find(const platform::Sha256Digest& fingerprint) const;
  void add(Entry entry);

  mutable platform::Mutex mutex_;
  std::vector<Entry> entries_ VARO_GUARDED_BY(mutex_);
  /// Where the next key goes once the cache is full.
  std::size_t oldest_ VARO_GUARDED_BY(mutex_) = 0;
};

}  // namespace varo::binary
