#include "Client/PartReceiver.h"

#include "Platform/Network/NetworkTuning.h"

#include <algorithm>
#include <utility>

namespace varo::detail {

using platform::HttpHeader;
using platform::MutexLock;
using platform::Result;

PartReceiver::PartReceiver(std::shared_ptr<platform::File> file, std::uint64_t first,
                           std::uint64_t length, IsPart isPart)
    : file_(std::move(file)), first_(first), length_(length), isPart_(std::move(isPart)) {}

Result<void> PartReceiver::begin(int status, const std::vector<HttpHeader>& headers,
                                 std::optional<std::uint64_t> /*expected*/) {
  platform::HttpResponse head;
  head.status = status;
  head.headers = headers;
  const bool isPart = isPart_(head);
  const MutexLock lock(mutex_);
  received_ = 0;
  sink_.reset();
  if (isPart && !isOver_) sink_.emplace(file_, first_, platform::tuning::kWriteSize);
  return {};
}

Result<void> PartReceiver::write(std::string_view bytes) {
  const MutexLock lock(mutex_);
  const std::uint64_t room = length_ - std::min(received_, length_);
  received_ += bytes.size();
  return sink_ ? sink_->write(bytes.substr(0, static_cast<std::size_t>(room))) : Result<void>();
}

Result<std::uint64_t> PartReceiver::finish() {
  const MutexLock lock(mutex_);
  isOver_ = true;
  if (sink_) {
    const auto flushed = sink_->take();
    sink_.reset();
    if (!flushed) return flushed.error();
  }
  return received_;
}

}  // namespace varo::detail
