#pragma once

#include "Client/BlobStoreCore.h"
#include "Client/Control.h"
#include "Client/Running.h"
#include "Platform/Foundation/Mutex.h"
#include "varo/blobs.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varo::detail {

class BlobFetch;

/// Several fetches as one operation. As many wait or run at once as the store has places; the
/// others are not made before, so that a later fetch of the store waits for a few and not for all.
/// Each blob is fetched once, however often it is named. Thread-safe.
class BlobBatch final : public Control, public std::enable_shared_from_this<BlobBatch> {
 public:
  using Fetching = Running<std::filesystem::path>;
  using Done = Running<std::vector<BlobState>>;

  BlobBatch(std::shared_ptr<BlobStoreCore> core, std::vector<BlobRef> blobs,
            std::shared_ptr<Done> running);

  /// Makes the first fetches. Once.
  void begin();

  void cancel() override;
  void pause() override;
  void resume() override;

 private:
  struct Fetch {
    std::shared_ptr<Fetching> running;
    std::shared_ptr<BlobFetch> operation;
    Progress progress;
  };
  using Fetches = std::vector<std::shared_ptr<Fetching>>;

  void fill();
  [[nodiscard]] std::shared_ptr<BlobFetch> makeNextLocked() VARO_REQUIRES(mutex_);
  void reached(std::size_t index, const Progress& progress);
  void ended(std::size_t index, const Outcome<std::filesystem::path>& outcome);
  [[nodiscard]] BlobState stateAfter(std::size_t index,
                                     const Outcome<std::filesystem::path>& outcome) const;
  void tellFetches();
  /// Enters the pause when all fetches have.
  void rested();
  void endIfOver();
  [[nodiscard]] Progress progressLocked() const VARO_REQUIRES(mutex_);
  [[nodiscard]] Fetches fetchesLocked() const VARO_REQUIRES(mutex_);

  const std::shared_ptr<BlobStoreCore> core_;
  const std::shared_ptr<Done> running_;
  /// Each blob once, and for each that was asked for which of them it is.
  std::vector<BlobRef> blobs_;
  std::vector<std::size_t> asked_;

  platform::Mutex mutex_;
  /// The first blob that has no fetch yet.
  std::size_t next_ VARO_GUARDED_BY(mutex_) = 0;
  /// Those that have no outcome yet, by their place in `blobs_`.
  std::map<std::size_t, Fetch> fetches_ VARO_GUARDED_BY(mutex_);
  std::vector<BlobState> states_ VARO_GUARDED_BY(mutex_);
  /// Bytes of those that have an outcome.
  std::uint64_t doneBytes_ VARO_GUARDED_BY(mutex_) = 0;
  bool paused_ VARO_GUARDED_BY(mutex_) = false;
  /// How many times `paused_` was asked to change.
  std::uint64_t orders_ VARO_GUARDED_BY(mutex_) = 0;
  /// Why no other fetch is made: it was cancelled, or the library shut down.
  std::optional<Failure> stopped_ VARO_GUARDED_BY(mutex_);
  bool over_ VARO_GUARDED_BY(mutex_) = false;
};

}  // namespace varo::detail
