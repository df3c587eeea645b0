#pragma once

#include "Client/PartsFile.h"
#include "Platform/Foundation/Mutex.h"
#include "Platform/Network/HttpTransport.h"
#include "Platform/Network/ResponseSink.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace varo::detail {

/// Writes one part to its place in the file while it is received, so that its bytes are copied once
/// and none of them waits in memory.
///
/// What the head of the response shows to be something else is dropped. So are bytes behind the
/// part's end, whatever a transport hands over after the request has ended, and everything once the
/// get has let the file go: none of them may reach another part, or another get's. Thread-safe.
class PartReceiver final : public platform::BodyReceiver {
 public:
  /// Whether this response is the part.
  using IsPart = std::function<bool(const platform::HttpResponse& head)>;

  /// `first` and `length` are the part's place in the file of `parts`, in bytes.
  PartReceiver(std::weak_ptr<PartsFile> parts, std::uint64_t first, std::uint64_t length,
               IsPart isPart);

  [[nodiscard]] platform::Result<void> begin(int status,
                                             const std::vector<platform::HttpHeader>& headers,
                                             std::optional<std::uint64_t> expected) override;
  [[nodiscard]] platform::Result<void> write(std::string_view bytes) override;
  /// A later attempt writes over what an earlier one has brought.
  [[nodiscard]] bool mayBeginAgain() const noexcept override { return true; }

  /// The request has ended. Returns how many bytes it has brought of what was taken for the part;
  /// up to its length they are in the file.
  [[nodiscard]] platform::Result<std::uint64_t> finish();

 private:
  /// Held while it is written: it stays locked as long as that takes.
  const std::weak_ptr<PartsFile> parts_;
  const std::uint64_t first_;
  const std::uint64_t length_;
  const IsPart isPart_;

  platform::Mutex mutex_;
  bool isOver_ VARO_GUARDED_BY(mutex_) = false;
  std::uint64_t received_ VARO_GUARDED_BY(mutex_) = 0;  // of the latest attempt, those behind too
  /// None while nothing is wanted.
  std::optional<platform::ResponseSink> sink_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
