#pragma once

#include "Binary/Binary/DownloadTask/NetworkAnswer.h"
#include "Binary/Binary/DownloadTask/RangeOrder.h"
#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Value.h"

#include <cstdint>
#include <optional>

namespace varo::binary {

/// What has become of the request for a range.
struct RangeArrival {
  platform::ErrorPtr failure;         // of the task; null where there is a response
  platform::ErrorPtr transportError;  // what it comes from; null where that is no transport
  NetworkAnswer answer = {};
  /// Of a response that is no success: what an error says of it beside its message.
  platform::Dictionary refusal = {};

  /// Whether it is a range, as far as its status says.
  [[nodiscard]] bool isRange() const noexcept;
  /// Whether the response was longer than it might be.
  [[nodiscard]] bool isTooLarge() const;
};

/// Reads what the transport has told of a request for a range, for the task of this id. May take a
/// while.
[[nodiscard]] RangeArrival readArrival(std::int64_t taskId, const RangeOrder& order,
                                       const std::optional<platform::Data>& data,
                                       const platform::Dictionary& responseInfo,
                                       const platform::ErrorPtr& error);

}  // namespace varo::binary
