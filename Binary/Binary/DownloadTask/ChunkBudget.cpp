#include "Binary/Binary/DownloadTask/ChunkBudget.h"

#include "Binary/Binary/SourceNames.h"
#include "Platform/Foundation/JobContext.h"
#include "Platform/Foundation/Runtime.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace varo::binary {

using platform::JobContext;
using platform::Runtime;

/// Its last owner sees what was written under the lock: he has got the token from whoever did.
struct ChunkBudget::Token {
  explicit Token(ChunkBudget& of) : budget(of) {}
  Token(const Token&) = delete;
  Token& operator=(const Token&) = delete;
  ~Token() {
    if (isTaken) budget.giveBack();
  }

  ChunkBudget& budget;
  bool isTaken = false;
};

ChunkBudget& ChunkBudget::shared() {
  static auto* const instance = new ChunkBudget();  // never destroyed, as the runtime
  return *instance;
}

bool ChunkBudget::hasRoom(std::size_t most) const { return taken_ < std::max(chunks_, most); }

ChunkBudget::Place ChunkBudget::takeFirst() {
  auto token = std::make_shared<Token>(*this);
  const MutexLock lock(mutex_);
  ++taken_;
  token->isTaken = true;
  return token;
}

ChunkBudget::Place ChunkBudget::ask(std::size_t most, Taker taker) {
  auto token = std::make_shared<Token>(*this);
  // Whoever gives the place back may belong to another operation.
  auto job = JobContext::keeping([token, taker = std::move(taker)] { taker(token); });
  const MutexLock lock(mutex_);
  // Whoever has waited longer is first, also where this one could do with a larger budget.
  if (!waiting_.empty() || !hasRoom(most)) {
    waiting_.push_back({most, std::move(token), std::move(job)});
    return nullptr;
  }
  ++taken_;
  token->isTaken = true;
  return token;
}

void ChunkBudget::giveBack() noexcept {
  {
    const MutexLock lock(mutex_);
    --taken_;
    if (std::exchange(isHandingOut_, true)) return;
  }
  while (auto job = nextInTurn()) Runtime::shared().pool().postOrRun(std::move(job));
}

std::function<void()> ChunkBudget::nextInTurn() noexcept {
  const MutexLock lock(mutex_);
  if (waiting_.empty() || !hasRoom(waiting_.front().most)) {
    isHandingOut_ = false;
    return nullptr;
  }
  ++taken_;
  waiting_.front().token->isTaken = true;
  auto job = std::move(waiting_.front().job);
  waiting_.pop_front();
  return job;
}

bool ChunkPlaces::cover(std::size_t chunks, std::size_t most, const ChunkBudget::Taker& taker) {
  if (places_.size() >= chunks) return true;
  if (places_.empty()) {
    places_.push_back(ChunkBudget::shared().takeFirst());
    return true;
  }
  if (isWaiting_) return false;
  auto place = ChunkBudget::shared().ask(most, taker);
  isWaiting_ = place == nullptr;
  if (!isWaiting_) places_.push_back(std::move(place));
  return !isWaiting_;
}

void ChunkPlaces::add(const ChunkBudget::Place& place) {
  isWaiting_ = false;
  places_.push_back(place);
}

void ChunkPlaces::keep(std::size_t chunks, std::list<ChunkBudget::Place>& freed) noexcept {
  while (places_.size() > chunks) {
    freed.splice(freed.end(), places_, std::prev(places_.end()));
  }
}

}  // namespace varo::binary
