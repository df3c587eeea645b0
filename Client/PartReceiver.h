#pragma once

#include "Platform/Foundation/File.h"
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
/// part's end, and whatever a transport hands over after the request has ended: none of them may
/// reach another part. Thread-safe.
class PartReceiver final : public platform::BodyReceiver {
 public:
  /// Whether this response is the part.
  using IsPart = std::function<bool(const platform::HttpResponse& head)>;

  /// `first` and `length` are the part's place, in bytes.
  PartReceiver(std::shared_ptr<platform::File> file, std::uint64_t first, std::uint64_t length,
               IsPart isPart);

  [[nodiscard]] platform::Result<void> begin(int status,
                                             const std::vector<platform::HttpHeader>& headers,
                                             std::optional<std::uint64_t> expected) override;
  [[nodiscard]] platform::Result<void> write(std::string_view bytes) override;
  /// A later attempt writes over what an earlier one has brought.
  [[nodiscard]] bool mayBeginAgain() const noexcept override { return true; }

  /// The request has ended. Returns how many bytes its body had; those of the part are in the file.
  [[nodiscard]] platform::Result<std::uint64_t> finish();

 private:
  const std::shared_ptr<platform::File> file_;
  const std::uint64_t first_;
  const std::uint64_t length_;
  const IsPart isPart_;

  platform::Mutex mutex_;
  bool isOver_ VARO_GUARDED_BY(mutex_) = false;
  std::uint64_t received_ VARO_GUARDED_BY(mutex_) = 0;  // of the latest attempt, dropped ones too
  /// None while nothing is wanted.
  std::optional<platform::ResponseSink> sink_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::detail
