#pragma once

#include "Platform/Foundation/Mutex.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <list>
#include <memory>

namespace varo::binary {

/// The chunks that the downloads of this process have between the request and the file, together.
///
/// Each of them is in memory, so that many downloads at once would otherwise take many times what
/// one takes. Whatever the others have, each may have one, so that it goes on; and where one could
/// use more than the budget, alone, it may. Thread-safe.
class ChunkBudget {
 public:
  /// The room for one chunk, given back by the last copy to go. Not in a step: it calls the pool.
  using Place = std::shared_ptr<const void>;
  using Taker = std::function<void(const Place&)>;

  /// Enough for one download with four ranges under way.
  static constexpr std::size_t kChunks = 8;

  explicit ChunkBudget(std::size_t chunks = kChunks) : chunks_(chunks) {}
  /// The one of this process.
  [[nodiscard]] static ChunkBudget& shared();

  /// A place for the first chunk of a download: there always is one.
  [[nodiscard]] Place takeFirst();
  /// Another place, or null where there is none now, or others wait for one: then `taker` gets one,
  /// on a thread of the pool and in the caller's `JobContext`, when its turn comes. For a download
  /// that could use `most` alone, the budget is at least that. The budget outlives its places.
  [[nodiscard]] Place ask(std::size_t most, Taker taker);

 private:
  struct Token;
  struct Waiting {
    std::size_t most;
    std::shared_ptr<Token> token;
    std::function<void()> job;  // hands the token over; made in advance, so that nothing can fail
  };

  [[nodiscard]] bool hasRoom(std::size_t most) const VARO_REQUIRES(mutex_);
  void giveBack() noexcept;
  /// What hands a place to who is next; null where nobody waits, or there is none.
  [[nodiscard]] std::function<void()> nextInTurn() noexcept;

  const std::size_t chunks_;
  platform::Mutex mutex_;
  std::size_t taken_ VARO_GUARDED_BY(mutex_) = 0;
  std::deque<Waiting> waiting_ VARO_GUARDED_BY(mutex_);
  /// One thread at a time hands places out: once the pool is shut down they are given back inside
  /// that, and a call within a call for each that waits would use up the stack.
  bool isHandingOut_ VARO_GUARDED_BY(mutex_) = false;
};

/// What one download has of the budget. Not thread-safe.
class ChunkPlaces {
 public:
  /// As many places as `chunks` need, in flight and waiting. False where there are none yet:
  /// `taker` gets one later, and hands it to `add`.
  [[nodiscard]] bool cover(std::size_t chunks, std::size_t most, const ChunkBudget::Taker& taker);
  void add(const ChunkBudget::Place& place);
  /// Moves those that `chunks` do not need to `freed`.
  void keep(std::size_t chunks, std::list<ChunkBudget::Place>& freed) noexcept;

 private:
  std::list<ChunkBudget::Place> places_;
  bool isWaiting_ = false;
};

}  // namespace varo::binary
