#pragma once

#include "Platform/Crypto/Sha256.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Result.h"

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string_view>
#include <vector>

namespace varo::binary {

/// Keeps the signing keys of the last few scopes (secret, date, region, service), since deriving
/// one costs four keyed codes and the same one signs a whole day's requests.
///
/// Neither the secret nor any other text of a scope is kept, only a digest of them all, so another
/// scope never gets a key. Thread-safe.
class SigningKeyCache {
 public:
  /// How many keys are kept; a new one takes the place of the oldest.
  static constexpr std::size_t kCapacity = 16;

  /// The process's cache, never destroyed.
  [[nodiscard]] static SigningKeyCache& shared();

  /// What stands for the texts of a scope, in this order. Texts that are cut differently ("ab", "c"
  /// and "a", "bc") make different ones.
  [[nodiscard]] static platform::Result<platform::Sha256Digest> fingerprint(
      std::initializer_list<std::string_view> scope);

  [[nodiscard]] std::optional<platform::Sha256Digest> find(
      const platform::Sha256Digest& fingerprint) const;
  void add(const platform::Sha256Digest& fingerprint, const platform::Sha256Digest& key);

 private:
  struct Entry {
    platform::Sha256Digest fingerprint;
    platform::Sha256Digest key;
  };

  mutable platform::Mutex mutex_;
  std::vector<Entry> entries_ VARO_GUARDED_BY(mutex_);
  /// Where the next key goes once the cache is full.
  std::size_t oldest_ VARO_GUARDED_BY(mutex_) = 0;
};

}  // namespace varo::binary
