#include "Client/SinkFeed.h"

#include "Client/Failures.h"
#include "Client/FileDestination.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Runtime.h"

#include <cstddef>
#include <utility>

namespace varo::detail {

using platform::MutexLock;

namespace {

/// Bytes of one call at most: the function is not to need much memory either.
constexpr std::size_t kPiece = std::size_t{256} * 1024;

}  // namespace

SinkFeed::SinkFeed(std::string about, Sink sink, std::shared_ptr<PartialFile> file,
                   std::shared_ptr<RunningBase> handle)
    : about_(std::move(about)),
      sink_(std::move(sink)),
      file_(std::move(file)),
      handle_(std::move(handle)) {}

void SinkFeed::begin(std::stop_token stop) {
  const MutexLock lock(mutex_);
  stop_ = std::move(stop);
  isOpen_ = true;
}

void SinkFeed::wake() {
  if (awake_.exchange(true)) return;
  // Where the pool takes no job any more, the bytes wait for `finish`.
  static_cast<void>(platform::Runtime::shared().pool().post([self = shared_from_this()] {
    self->awake_ = false;  // before the look: bytes that come after it wake another job
    while (self->step()) {
    }
  }));
}

bool SinkFeed::finish() {
  hasAll_ = false;
  while (step()) {
  }
  return hasAll_ && !isOver();
}

void SinkFeed::end() {
  {
    const MutexLock lock(mutex_);
    isOpen_ = false;
  }
  handle_->waitForMove();
}

bool SinkFeed::step() {
  bool goesOn = false;
  return handle_->move([&] { goesOn = handOver(); }) && goesOn;
}

bool SinkFeed::handOver() {
  if (isOver()) return false;
  const auto piece = file_->handOut(handedOver_, kPiece);
  if (!piece) {
    fail(failureFrom(piece.error(), about_));
    return false;
  }
  hasAll_ = piece->empty();
  if (hasAll_) return false;
  if (auto handed = handTo(sink_, *piece, about_); !handed) fail(std::move(handed).error());
  handedOver_ += piece->size();
  return true;
}

bool SinkFeed::isOver() const {
  const MutexLock lock(mutex_);
  return !isOpen_ || failure_ || stop_.stop_requested();
}

std::optional<Failure> SinkFeed::failure() const {
  const MutexLock lock(mutex_);
  return failure_;
}

void SinkFeed::fail(Failure failure) {
  {
    const MutexLock lock(mutex_);
    failure_ = std::move(failure);
  }
  handle_->cancel();  // what is still to come is of no use
}

}  // namespace varo::detail
