#include "Client/PartReceiver.h"

#include "Platform/Network/NetworkTuning.h"

#include <algorithm>
#include <utility>

namespace varo::detail {

using platform::HttpHeader;
using platform::MutexLock;
using platform::Result;

PartReceiver::PartReceiver(std::weak_ptr<PartsFile> parts, std::uint64_t first,
                           std::uint64_t length, IsPart isPart)
    : parts_(std::move(parts)), first_(first), length_(length), isPart_(std::move(isPart)) {}

Result<void> PartReceiver::begin(int status, const std::vector<HttpHeader>& headers,
                                 std::optional<std::uint64_t> /*expected*/) {
  platform::HttpResponse head;
  head.status = status;
  head.headers = headers;
  const bool isPart = isPart_(head);
  const auto parts = parts_.lock();
  const MutexLock lock(mutex_);
  received_ = 0;
  sink_.reset();
  if (isPart && parts != nullptr && !isOver_) {
    sink_.emplace(parts->file(), first_, platform::tuning::kWriteSize);
  }
  return {};
}

Result<void> PartReceiver::write(std::string_view bytes) {
  const auto parts = parts_.lock();
  const MutexLock lock(mutex_);
  if (parts == nullptr) sink_.reset();
  if (!sink_) return {};
  const std::uint64_t room = length_ - std::min(received_, length_);
  received_ += bytes.size();
  return sink_->write(bytes.substr(0, static_cast<std::size_t>(room)));
}

Result<std::uint64_t> PartReceiver::finish() {
  const auto parts = parts_.lock();
  const MutexLock lock(mutex_);
  isOver_ = true;
  if (parts == nullptr) sink_.reset();
  if (sink_) {
    const auto flushed = sink_->take();
    sink_.reset();
    if (!flushed) return flushed.error();
  }
  return received_;
}

}  // namespace varo::detail
