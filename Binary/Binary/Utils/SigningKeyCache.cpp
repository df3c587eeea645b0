#include "Binary/Binary/Utils/SigningKeyCache.h"

#include "Binary/Binary/SourceNames.h"
#include "Binary/Binary/Utils/BaseHMACGenerator.h"
#include "Binary/Binary/Utils/S3SigningConstants.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace varo::binary {

using platform::HmacSha256;
using platform::Sha256;
using platform::Sha256Digest;

namespace {

/// Secret, date, region, service.
using Scope = std::array<std::string_view, 4>;

/// What stands for the texts of a scope.
Result<Sha256Digest> fingerprintOf(const Scope& scope) {
  std::array<std::uint64_t, std::tuple_size_v<Scope>> lengths{};
  std::transform(scope.begin(), scope.end(), lengths.begin(),
                 [](std::string_view text) { return text.size(); });
  Sha256 hash;
  // With the lengths, so that "ab", "c" and "a", "bc" differ.
  hash.update({reinterpret_cast<const char*>(lengths.data()), sizeof lengths});
  for (const std::string_view text : scope) hash.update(text);
  return hash.finish();
}

Result<SigningKeyCache::Key> derive(const Scope& scope) {
  const auto [secret, date, region, service] = scope;
  const std::string first = std::string(signing::kKeyPrefix).append(secret);
  std::string_view key = first;
  Sha256Digest derived;
  // Each step's result is the key of the next: a day, a region, a service.
  for (const std::string_view text : {date, region, service, signing::kScopeTerminator}) {
    const auto code = BaseHMACGenerator::HmacSHA256(text, key, HmacAlgorithm::kSha256);
    if (!code) return code.error();
    derived = *code;
    key = derived.bytes();
  }
  auto hmac = HmacSha256::withKey(key);
  if (!hmac) return hmac.error();
  return SigningKeyCache::Key(
      std::make_shared<SigningKey>(SigningKey{derived, std::move(hmac).value()}));
}

}  // namespace

SigningKeyCache& SigningKeyCache::shared() {
  static auto& cache = *new SigningKeyCache();  // asked until the last task has ended
  return cache;
}

Result<SigningKeyCache::Key> SigningKeyCache::keyOf(std::string_view secret, std::string_view date,
                                                    std::string_view region,
                                                    std::string_view service) {
  const Scope scope{secret, date, region, service};
  const auto fingerprint = fingerprintOf(scope);
  if (!fingerprint) return fingerprint.error();
  if (Key kept = find(*fingerprint)) return kept;
  auto key = derive(scope);
  if (key) add({*fingerprint, *key});
  return key;
}

SigningKeyCache::Key SigningKeyCache::find(const Sha256Digest& fingerprint) const {
  const MutexLock lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& entry) {
    return entry.fingerprint == fingerprint;
  });
  return found != entries_.end() ? found->key : nullptr;
}

void SigningKeyCache::add(Entry entry) {
  const MutexLock lock(mutex_);
  if (entries_.empty()) entries_.reserve(kCapacity);
  if (entries_.size() < kCapacity) {
    entries_.push_back(std::move(entry));
    return;
  }
  // Two threads may both have derived a key and added it; that costs a place and nothing else.
  std::swap(entries_[oldest_], entry);  // the former one goes after the lock
  oldest_ = (oldest_ + 1) % kCapacity;
}

}  // namespace varo::binary
