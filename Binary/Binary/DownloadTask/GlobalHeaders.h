#pragma once

#include "Platform/Foundation/Mutex.h"
#include "Platform/Foundation/Value.h"
#include "Platform/Network/VRONetworkUtility.h"

#include <string>
#include <string_view>

namespace varo::binary {

/// With this field a server sets the level at which the library logs.
inline constexpr char kDeveiceLogLevelHeader[] = "X-Pelmar-Device-Log-Level";
/// The level that switches it off.
inline constexpr std::string_view kLogLevelOff = "off";

/// The headers that every ranged request of the process carries: at most the device log level, as
/// the server last set it, so that the server sees that it is in force. They go to the server
/// (scheme, host and port) that set them only. Thread-safe.
class GlobalHeaders {
 public:
  [[nodiscard]] static GlobalHeaders& shared();

  /// Puts the device log level of a response, if it has one, in force, and keeps it for requests to
  /// the server of `url`.
  void noteAnswer(std::string_view url, const platform::HttpResponseInfo& answer);
  /// The headers for a request to `url`.
  [[nodiscard]] platform::Dictionary headersFor(std::string_view url) const;

 private:
  mutable platform::Mutex mutex_;
  platform::Dictionary _globalHeaders VARO_GUARDED_BY(mutex_);
  std::string origin_ VARO_GUARDED_BY(mutex_);
};

}  // namespace varo::binary
