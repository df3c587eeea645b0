#include "Binary/Binary/Utils/SigningKeyCache.h"

#include "Binary/Binary/SourceNames.h"

#include <algorithm>
#include <string>

namespace varo::binary {

using platform::Sha256;
using platform::Sha256Digest;

SigningKeyCache& SigningKeyCache::shared() {
  static auto& cache = *new SigningKeyCache();  // asked until the last task has ended
  return cache;
}

Result<Sha256Digest> SigningKeyCache::fingerprint(std::initializer_list<std::string_view> scope) {
  Sha256 hash;
  for (const std::string_view text : scope) {
    // With the lengths, so that "ab", "c" and "a", "bc" differ. Only the
    // digest is kept, not the secret.
    hash.update(std::to_string(text.size()));
    hash.update(":");
    hash.update(text);
  }
  return hash.finish();
}

std::optional<Sha256Digest> SigningKeyCache::find(const Sha256Digest& fingerprint) const {
  const MutexLock lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.fingerprint == fingerprint;
  });
  if (found == entries_.end()) return std::nullopt;
  return found->key;
}

void SigningKeyCache::add(const Sha256Digest& fingerprint, const Sha256Digest& key) {
  const MutexLock lock(mutex_);
  if (entries_.empty()) entries_.reserve(kCapacity);
  if (entries_.size() < kCapacity) {
    entries_.push_back({fingerprint, key});
    return;
  }
  // Two threads may both have derived a key and added it; that costs a place and nothing else.
  entries_[oldest_] = {fingerprint, key};
  oldest_ = (oldest_ + 1) % kCapacity;
}

}  // namespace varo::binary
