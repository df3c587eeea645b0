#include "Client/BlobBatch.h"

#include "Client/BlobFetch.h"
#include "Client/BlobStates.h"
#include "Client/Failures.h"

#include <fmt/format.h>

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace varo::detail {

using platform::MutexLock;

BlobBatch::BlobBatch(std::shared_ptr<BlobStoreCore> core, std::vector<BlobRef> blobs,
                     std::shared_ptr<Done> running)
    : core_(std::move(core)), running_(std::move(running)) {
  std::unordered_map<std::string, std::size_t> places;
  asked_.reserve(blobs.size());
  for (BlobRef& blob : blobs) {
    const auto [place, isNew] = places.try_emplace(identityOf(blob), blobs_.size());
    if (isNew) blobs_.push_back(std::move(blob));
    asked_.push_back(place->second);
  }
  states_.resize(blobs_.size());
}

void BlobBatch::begin() {
  running_->enter(State::kRunning);
  fill();
  endIfOver();  // there may be none
}

// Making fetches.

void BlobBatch::fill() {
  while (true) {
    std::shared_ptr<BlobFetch> next;
    {
      const MutexLock lock(mutex_);
      next = makeNextLocked();
    }
    if (next == nullptr) return;
    // One that is paused or cancelled here already takes no place.
    next->begin();
  }
}

/// Null where there is none to be made now.
std::shared_ptr<BlobFetch> BlobBatch::makeNextLocked() {
  const auto places = static_cast<std::size_t>(core_->client().options().parallel);
  if (paused_ || stopped_ || next_ == blobs_.size() || fetches_.size() >= places) return nullptr;
  const std::size_t index = next_++;
  auto running = std::make_shared<Fetching>();
  auto operation =
      std::make_shared<BlobFetch>(core_, blobs_[index], running, [weak = weak_from_this()] {
        if (const auto self = weak.lock()) self->rested();
      });
  operation->serve(*running, operation->about());
  // These keep this object until the fetch has its outcome, whoever gives it up.
  running->setOnProgress([self = shared_from_this(), index](const Progress& progress) {
    self->reached(index, progress);
  });
  running->setOnDone(
      [self = shared_from_this(), index](const auto& outcome) { self->ended(index, outcome); });
  fetches_[index] = {std::move(running), operation, {}};
  return operation;
}

// What fetches tell.

void BlobBatch::reached(std::size_t index, const Progress& progress) {
  Progress whole;
  {
    const MutexLock lock(mutex_);
    const auto fetch = fetches_.find(index);
    if (fetch == fetches_.end()) return;
    fetch->second.progress = progress;
    whole = progressLocked();
  }
  running_->reached(whole.done, whole.total);
}

Progress BlobBatch::progressLocked() const {
  Progress whole;
  whole.done = whole.total = doneBytes_;
  bool isKnown = next_ == blobs_.size();
  for (const auto& [index, fetch] : fetches_) {
    whole.done += fetch.progress.done;
    whole.total += fetch.progress.total;
    isKnown = isKnown && fetch.progress.total != 0;
  }
  if (!isKnown) whole.total = 0;
  return whole;
}

void BlobBatch::ended(std::size_t index, const Outcome<std::filesystem::path>& outcome) {
  BlobState state = stateAfter(index, outcome);
  Fetch ended;  // destroyed without the lock
  Progress whole;
  {
    const MutexLock lock(mutex_);
    states_[index] = std::move(state);
    ended = std::move(fetches_.extract(index).mapped());
    doneBytes_ += ended.progress.done;
    if (!outcome && outcome.error().kind == Kind::kShutDown && !stopped_) {
      stopped_ = outcome.error();
    }
    whole = progressLocked();
  }
  running_->reached(whole.done, whole.total);
  fill();
  rested();
  endIfOver();
}

BlobState BlobBatch::stateAfter(std::size_t index,
                                const Outcome<std::filesystem::path>& outcome) const {
  const BlobRef& blob = blobs_[index];
  // Where the database cannot be read any more, what is known of the fetch has to do.
  BlobState state =
      core_->database()
          ->state(blob, describe(blob))
          .value_or(stateWithoutRow(blob, outcome ? BlobStatus::kAvailable : BlobStatus::kFailed));
  if (outcome) {
    state.path = *outcome;
  } else {
    state.reason = outcome.error().message;
    state.failure = outcome.error();
  }
  return state;
}

void BlobBatch::endIfOver() {
  std::optional<Failure> stopped;
  std::vector<BlobState> outcome;
  {
    const MutexLock lock(mutex_);
    const bool isOver = fetches_.empty() && (stopped_ || next_ == blobs_.size());
    if (!isOver || std::exchange(over_, true)) return;
    stopped = stopped_;
    outcome.reserve(asked_.size());
    for (const std::size_t index : asked_) outcome.push_back(states_[index]);
  }
  if (stopped) return running_->end(*std::move(stopped));
  running_->end(std::move(outcome));
}

// What the handle asks for.

BlobBatch::Fetches BlobBatch::fetchesLocked() const {
  Fetches all;
  for (const auto& [index, fetch] : fetches_) all.push_back(fetch.running);
  return all;
}

void BlobBatch::cancel() {
  Fetches fetches;
  {
    const MutexLock lock(mutex_);
    if (!stopped_) {
      stopped_ = failureOf(Kind::kCancelled,
                           fmt::format("The fetch of {} blobs was cancelled", blobs_.size()));
    }
    fetches = fetchesLocked();
  }
  for (const auto& fetch : fetches) fetch->cancel();
  endIfOver();
}

void BlobBatch::pause() {
  {
    const MutexLock lock(mutex_);
    paused_ = true;
    ++orders_;
  }
  tellFetches();
  rested();
}

void BlobBatch::rested() {
  const MutexLock lock(mutex_);
  if (!paused_) return;
  const bool areAll = std::all_of(fetches_.begin(), fetches_.end(), [](const auto& fetch) {
    return fetch.second.running->state() == State::kPaused;
  });
  if (areAll) running_->enter(State::kPaused);
}

void BlobBatch::resume() {
  {
    const MutexLock lock(mutex_);
    if (!std::exchange(paused_, false)) return;
    ++orders_;
    running_->enter(State::kRunning);
  }
  tellFetches();
  fill();
}

/// A pause and a resume on two threads reach the fetches in any order. So whoever was overtaken
/// tells them again, what was asked for last.
void BlobBatch::tellFetches() {
  std::uint64_t told = 0;
  while (true) {
    Fetches fetches;
    bool pauses = false;
    {
      const MutexLock lock(mutex_);
      if (std::exchange(told, orders_) == orders_) return;
      pauses = paused_;
      fetches = fetchesLocked();
    }
    for (const auto& fetch : fetches) pauses ? fetch->pause() : fetch->resume();
  }
}

}  // namespace varo::detail
