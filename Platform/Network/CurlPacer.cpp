#include "Platform/Network/CurlPacer.h"

#include <algorithm>

namespace varo::platform {
namespace {

TokenBucket& bucketOf(RateLimit& limit, CurlPacer::Direction direction) {
  return direction == CurlPacer::Direction::kReceiving ? limit.receiving() : limit.sending();
}

}  // namespace

CurlPacer::CurlPacer(std::uint64_t bytesPerSecond) {
  if (bytesPerSecond > 0) common_.emplace(bytesPerSecond);
}

TokenBucket::Duration CurlPacer::wait(RateLimit* own, Direction direction) {
  TokenBucket::Duration longest{0};
  if (common_) longest = bucketOf(*common_, direction).wait();
  if (own != nullptr) longest = std::max(longest, bucketOf(*own, direction).wait());
  return longest;
}

bool CurlPacer::mayMove(CURL* easy, RateLimit* own, Direction direction) {
  if (wait(own, direction).count() == 0) return true;
  // One that waits in both directions asks again for the other when it goes on.
  if (!isPaused(easy)) paused_.push_back({easy, own, direction});
  return false;
}

void CurlPacer::moved(RateLimit* own, Direction direction, std::uint64_t bytes) {
  if (common_) bucketOf(*common_, direction).take(bytes);
  if (own != nullptr) bucketOf(*own, direction).take(bytes);
}

std::size_t CurlPacer::piece(const RateLimit* own, std::size_t most) const noexcept {
  std::uint64_t size = most;
  if (common_) size = std::min(size, common_->piece());
  if (own != nullptr) size = std::min(size, own->piece());
  return static_cast<std::size_t>(size);
}

bool CurlPacer::hasSender(const std::vector<const RateLimit*>& sending,
                          const RateLimit* own) const {
  if (common_) return !sending.empty();
  return std::find(sending.begin(), sending.end(), own) != sending.end();
}

std::vector<std::pair<CURL*, CURLcode>> CurlPacer::resume() {
  std::vector<std::pair<CURL*, CURLcode>> failed;
  if (paused_.empty()) return failed;
  std::deque<Paused> round;
  round.swap(paused_);
  std::deque<Paused> stillPaused;
  std::vector<const RateLimit*> sending;  // those of the exchanges that go on with sending
  for (const Paused& paused : round) {
    const bool isTaken = paused.direction == Direction::kSending && hasSender(sending, paused.own);
    if (isTaken || wait(paused.own, paused.direction).count() > 0) {
      stillPaused.push_back(paused);
      continue;
    }
    // libcurl hands out what it has kept before it returns, so this one may be paused again here.
    // For what it sends it asks later, and always in the same order: one at a time, or the first
    // would have every turn.
    if (paused.direction == Direction::kSending) sending.push_back(paused.own);
    const CURLcode code = curl_easy_pause(paused.easy, CURLPAUSE_CONT);
    if (code != CURLE_OK) failed.emplace_back(paused.easy, code);
  }
  // Whoever had its turn stands behind those who had none.
  paused_.insert(paused_.begin(), stillPaused.begin(), stillPaused.end());
  return failed;
}

std::optional<TokenBucket::Duration> CurlPacer::untilNext() {
  std::optional<TokenBucket::Duration> shortest;
  for (const Paused& paused : paused_) {
    const auto duration = wait(paused.own, paused.direction);
    shortest = std::min(shortest.value_or(duration), duration);
  }
  return shortest;
}

bool CurlPacer::isPaused(const CURL* easy) const noexcept {
  return std::any_of(paused_.begin(), paused_.end(),
                     [easy](const Paused& paused) { return paused.easy == easy; });
}

void CurlPacer::forget(const CURL* easy) noexcept {
  std::erase_if(paused_, [easy](const Paused& paused) { return paused.easy == easy; });
}

}  // namespace varo::platform
